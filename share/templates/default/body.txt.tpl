QUARANTINE REPORT

Messages held: {{QUARANTINE_MESSAGES_COUNT}}
From: {{QUARANTINE_PERIOD_FROM}}
To:   {{QUARANTINE_PERIOD_TO}}

These messages were taken for spam and kept out of your inbox.
Those that you do not want need no action.

{{#QUARANTINE_MESSAGES_TABLE}}----------------------------------------------------------------------
Date:    {{ORIG_DATE}}
From:    {{ORIG_FROM}}
Subject: {{ORIG_SUBJECT}}{{#SPAM_WEB_ACTION}}
Release on the web:
  {{RELEASE_URL}}
Delete on the web:
  {{DELETE_URL}}{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
Release by mail: write to {{RELEASE_EMAIL_ADDR:x-mailto-to}} with the subject
  {{RELEASE_EMAIL_ADDR:x-mailto-subject}}
Delete by mail: write to {{DELETE_EMAIL_ADDR:x-mailto-to}} with the subject
  {{DELETE_EMAIL_ADDR:x-mailto-subject}}{{/SPAM_EMAIL_ACTION}}
{{/QUARANTINE_MESSAGES_TABLE}}======================================================================
{{#SPAM_WEB_ACTION}}
Delete all messages of this report on the web:
  {{DELETE_ALL_URL}}
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
Delete all messages of this report by mail: write to {{DELETE_CONTROL_USER}} with the subject
  {{DELETE_ALL_SUBJECT}}
{{/SPAM_EMAIL_ACTION}}{{#SPAM_OTHER_ACTION}}
Preferences:
  {{PREFERENCE_URL}}
{{/SPAM_OTHER_ACTION}}{{#SPAM_WEB_ACTION}}
The links act on your quarantine without a password. Please do not forward this mail.
{{/SPAM_WEB_ACTION}}
