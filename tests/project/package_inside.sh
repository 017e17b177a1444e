#!/usr/bin/env bash
# Runs inside the booted container of package_test.sh, which throws everything away afterwards.
set -Eeuo pipefail
cd /package_test
trap 'echo "failed in line $LINENO: $BASH_COMMAND"; journalctl -b -n 30 --no-pager -u "spamreport-*"; exit 1' ERR

as_velmar() { runuser -u velmar -- "$@"; }
same() { [ "$2" = "$3" ] || { echo "$1: got '$2', want '$3'"; return 1; }; }
units="spamreport-run.timer spamreport-queue.path spamreport-queue.timer"
states() { { systemctl is-active $units || true; } | sort -u; }
queued() { find /var/spool/velmar/new -type f | wc -l; }

echo "== install"
export DEBIAN_FRONTEND=noninteractive
dpkg -i libspamreport1_*.deb spamreport_*.deb
for unit in $units; do same "$unit" "$(systemctl is-enabled $unit || true) $(systemctl is-active $unit || true)" "disabled inactive"; done
same directories "$(stat -c '%a %U %G %n' /var/spool/velmar/new /var/lib/velmar /var/log/velmar /etc/velmar/host.toml)" \
  "750 velmar velmar /var/spool/velmar/new
750 velmar velmar /var/lib/velmar
2750 velmar adm /var/log/velmar
644 root root /etc/velmar/host.toml"
as_velmar spamreport check
systemd-analyze verify /lib/systemd/system/spamreport-{run,queue}.* 2>&1 | { ! grep spamreport; }
for service in spamreport-run spamreport-queue; do systemd-analyze --no-pager --threshold=20 security $service.service | tail -n 1; done

echo "== a mailbox of another user"
useradd --system --shell /usr/sbin/nologin vmail
examples=/usr/share/velmar/examples
$examples/make-quarantine anna@example.org
held() { setpriv --reuid=vmail --regid=velmar --clear-groups $examples/hold-message "$1" <held.eml; }
held anna@example.org
new=/home/example.org/anna~example.org/quarantine/new
for fault in 'nobody@example.org 67' '../x@example.org 67' 'anna@../example.org 67' '@example.org 67'; do
  status=0
  held "${fault% *}" || status=$?
  same "hold-message $fault" $status "${fault##* }"
done
same "held message" "$(stat -c '%a %U %G' $new/*)" "640 vmail velmar"
{
  cat /etc/velmar/host.toml
  printf '[log]\nfile = "/var/log/velmar/spamreport.log"\n[spam_report]\naccess_link_hours = 1\nschedule = [%s]\n' "$(seq -s , 0 23)"
  printf '[queue]\nkind = "smtp"\nurl = "smtp://127.0.0.1:10025"\n'
  printf '[[domain]]\nname = "example.org"\n[[recipient_policy]]\naddress = "*"\nantispam_profile = 1\n'
  printf '[[antispam_profile]]\nnumber = 1\nquarantine_report = true\nweb_release = true\n'
} >host.toml && cat host.toml >/etc/velmar/host.toml
mkdir -m 777 sink
sink() { smtp-sink -u nobody -d /package_test/sink/%M. 127.0.0.1:10025 10 & }
sink
sleep 0.5
as_velmar spamreport check

echo "== scheduled reports"
# One message in each of the last two hours: whichever is due now, there is one to report.
hour=$(date -d "$(date +%Y-%m-%dT%H:00)" +%s)
for time in $((hour - 3000)) $((hour - 1)); do cp -p $new/*P* "$new/$time.M1.mail,S=9"; done
systemctl start spamreport-run.service
systemctl start spamreport-queue.service
same "mails handed over" "$(find sink -type f | wc -l), $(queued) left" "1, 0 left"
grep -q '^Subject: ' sink/*
same "log" "$(stat -c '%a %U %G' /var/log/velmar/spamreport.log)" "640 velmar adm"
kill %1

echo "== what comes into the queue is handed over by the watch"
systemctl enable --now spamreport-run.timer
as_velmar spamreport run --all --period 86400 || true
same "mails that wait" "$(queued)" 1
sink
as_velmar spamreport queue retry --all
for second in $(seq 10); do [ "$(queued)" = 0 ] && break || sleep 1; done
same "mails handed over by the watch" "$(find sink -type f | wc -l), $(queued) left" "2, 0 left"

echo "== a run that fails in part"
chmod 0700 "${new%/*}"
printf '[Service]\nExecStart=/usr/bin/spamreport run --all\n' >/run/systemd/system/spamreport-all.service
systemctl daemon-reload
systemctl start spamreport-all.service && same "start of a run that fails" succeeded failed
same "a run that failed in part" "$(systemctl is-failed spamreport-all.service)" failed

echo "== upgrade"
dpkg -i libspamreport1_*.deb spamreport_*.deb
same "timers after the upgrade" "$(states)" active
cmp host.toml /etc/velmar/host.toml

echo "== remove and purge"
mkdir /etc/velmar/templates/branded && touch /etc/velmar/templates/branded/header.tpl
dpkg -r spamreport
same "timers after the removal" "$(states)" inactive
cmp host.toml /etc/velmar/host.toml
dpkg -P spamreport libspamreport1
test ! -e /var/spool/velmar
test ! -e /usr/share/velmar
