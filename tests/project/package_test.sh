#!/usr/bin/env bash
# Builds the Debian packages and lives through their life on a booted system: a container over this machine's own files,
# without its build-time links to libraries, without network. Needs root; takes minutes, so scripts/test --full runs it.
#
# usage: package_test.sh SOURCE_DIR
set -euo pipefail
source=$1 here=$(realpath "$(dirname "$0")")
[ "$(id -u)" = 0 ] || { echo "package_test.sh: needs root to boot a container" >&2; exit 1; }

if [ -z "${PACKAGE_TEST_WORK:-}" ]; then
  "$source/scripts/package"
  PACKAGE_TEST_WORK=$(mktemp -d)
  export PACKAGE_TEST_WORK
  trap 'rm -rf "$PACKAGE_TEST_WORK"' EXIT
  # Everything is mounted in a name space of its own and vanishes with it.
  unshare --mount "$0" "$source"
  exit
fi

work=$PACKAGE_TEST_WORK
mount -t tmpfs tmpfs "$work"
mkdir "$work/upper" "$work/scratch" "$work/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$work/upper,workdir=$work/scratch" "$work/root" ||
  { echo "skipped: no overlay can be mounted here"; exit 77; }
root=$work/root
find "$root/usr/lib/$(gcc -print-multiarch)" -maxdepth 1 -name 'lib*.so' -type l -delete
rm -rf "$root/etc/machine-id" "$root/home" "$root/etc/velmar" "$root/var/lib/velmar" "$root/var/spool/velmar"
mkdir -p "$root/home" "$root/package_test"
cp "$source"/build/package/*.deb "$here/package_inside.sh" "$root/package_test"
cp "$source/share/demo/messages/folded-plain.eml" "$root/package_test/held.eml"
cat >"$root/etc/systemd/system/package-test.service" <<'UNIT'
[Unit]
Requires=basic.target
After=basic.target
SuccessAction=poweroff-force
FailureAction=poweroff-force
[Service]
Type=oneshot
ExecStart=/bin/sh -c "/package_test/package_inside.sh >/package_test/log 2>&1 && touch /package_test/passed"
UNIT
timeout 400 systemd-nspawn --quiet --register=no --keep-unit --private-network --console=pipe -D "$root" -b \
  systemd.unit=package-test.service systemd.show_status=no </dev/null >"$work/boot.log" 2>&1 || true
# What is tested begins with the log: without one the machine does not allow containers.
cat "$root/package_test/log" 2>/dev/null || { tail -n 40 "$work/boot.log"; echo "skipped: no container starts here"; exit 77; }
test -e "$root/package_test/passed"

# What is left of the packages after their purge: what people made, and the user.
left=$(cd "$work/upper" && find . -type f \( -path '*velmar*' -o -path '*spamreport*' \) \
  ! -path './package_test/*' ! -path './run/*' ! -path './var/cache/*' ! -path './tmp/*' ! -path './home/*' | sort)
want="./etc/velmar/templates/branded/header.tpl
./var/lib/velmar/secret
./var/lib/velmar/state.db"
[ "$left" = "$want" ] || { printf 'left after the purge: got\n%s\nwant\n%s\n' "$left" "$want"; exit 1; }
echo "ok"
