Language: @@=lang@@
Wrap: 76
@# The name of the report's sender, as mail programs list it.
From: @@Spam quarantine@@ <{{RELEASE_CONTROL_USER}}>
@# Subject of the report and heading of its page.
Subject: @@{{QUARANTINE_MESSAGES_COUNT}} message held in your spam quarantine||{{QUARANTINE_MESSAGES_COUNT}} messages held in your spam quarantine@@
Envelope-From:
