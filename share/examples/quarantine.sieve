# Runs before the users' own scripts (sieve_before in dovecot.conf beside this file). Compile it with sievec.
# The spam filter must have removed this header from what came from outside before it adds its own.
require ["fileinto"];

if header :is "X-Spam-Flag" "YES" {
  # Without a quarantine the mail goes to the inbox: nothing is lost, and Dovecot's log says so.
  fileinto "held/quarantine";
  stop;
}
