@@{{QUARANTINE_MESSAGES_COUNT}} message held in your spam quarantine||{{QUARANTINE_MESSAGES_COUNT}} messages held in your spam quarantine@@

@@{{MAILBOX_ADDRESS}} at {{SITE_NAME}}@@
@@{{QUARANTINE_PERIOD_FROM}} to {{QUARANTINE_PERIOD_TO}} ({{TIME_ZONE}})@@

@@This message looks like spam, so it was kept out of your inbox.||These messages look like spam, so they were kept out of your inbox.@@

@@“Release” delivers a message to your mailbox. “Delete” removes it for good.@@@@=gap@@@@If you do not want a message, you need not do anything.@@{{#SPAM_WEB_ACTION}}
@@On the web, a page of your mail service opens first.@@{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
@# In the plain text. For each message an address and a subject follow.
@@By mail, write to the address given, with exactly the subject given.@@{{/SPAM_EMAIL_ACTION}}

@# In the plain text these words stand at the beginning of a line, before a date, a sender, a subject, an address. Keep
@# the colon, or what your language writes in its place.
{{#QUARANTINE_MESSAGES_TABLE}}{{ROW_NUMBER}}. {{ORIG_DATE}}
  @@From:@@ {{#NO_SENDER}}@@(no sender)@@{{/NO_SENDER}}{{#WITH_SENDER_NAME}}{{SENDER_NAME:x-inert-text=200}} {{/WITH_SENDER_NAME}}{{#WITH_SENDER_ADDRESS}}<{{SENDER_ADDRESS:x-inert-text=200}}>{{/WITH_SENDER_ADDRESS}}
  @@Subject:@@ {{#NO_SUBJECT}}@@(no subject)@@{{/NO_SUBJECT}}{{ORIG_SUBJECT:x-inert-text=300}}{{#SPAM_WEB_ACTION}}
@# In the plain text, before a link on a line of its own.
  @@Release on the web:@@
    {{RELEASE_URL}}
  @@Delete on the web:@@
    {{DELETE_URL}}{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
@# In the plain text, before the address to write to and the subject, each on a line of its own.
  @@Release by mail:@@
    @@To:@@ {{RELEASE_EMAIL_ADDR:x-mailto-to}}
    @@Subject:@@ {{RELEASE_EMAIL_ADDR:x-mailto-subject}}
  @@Delete by mail:@@
    @@To:@@ {{DELETE_EMAIL_ADDR:x-mailto-to}}
    @@Subject:@@ {{DELETE_EMAIL_ADDR:x-mailto-subject}}{{/SPAM_EMAIL_ACTION}}

{{/QUARANTINE_MESSAGES_TABLE}}{{#SPAM_WEB_ACTION}}@@Delete all of these messages on the web@@
    {{DELETE_ALL_URL}}
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}@@Delete all of these messages by mail@@
    @@To:@@ {{DELETE_CONTROL_USER}}
    @@Subject:@@ {{DELETE_ALL_SUBJECT}}
{{/SPAM_EMAIL_ACTION}}{{#SPAM_OTHER_ACTION}}@@Change your quarantine preferences@@
    {{PREFERENCE_URL}}
{{/SPAM_OTHER_ACTION}}
@@You receive this report because {{SITE_NAME}} holds messages for {{MAILBOX_ADDRESS}} that look like spam.@@@@=gap@@@@Your mail administrators can change or stop these reports.@@
{{#SPAM_WEB_ACTION}}@@The links work without a password, so please do not forward this report.@@
{{/SPAM_WEB_ACTION}}
