From: Quarantine <{{RELEASE_CONTROL_USER}}>
Subject: Quarantine report, messages held: {{QUARANTINE_MESSAGES_COUNT}}
Envelope-From:
