{{%AUTOESCAPE context="HTML"}}<!DOCTYPE html>
<html lang="@@=lang@@" dir="@@=dir@@">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta name="supported-color-schemes" content="light dark">
<meta name="format-detection" content="telephone=no,date=no,address=no,email=no,url=no">
<title>@@Spam quarantine@@</title>
{{! The frame is styled in place. What repeats for each message is short, because some mail services cut a page after
about 100 kB, and improved here: where this block is not honoured, rows still show as a table of plain links. }}
<style>
:root { color-scheme: light dark; }
.list th, .list td { border-bottom: 1px solid #d5dde3; }
.list th, .list td, .card p { overflow-wrap: anywhere; word-break: break-word; }
.list thead th { border-width: 2px; font-size: 13px; font-weight: 600; color: #52626e; }
.list th:first-child { padding-@@=start@@: 16px; }
.sender b { font-weight: 600; }
.sender span { display: inline-block; }
.sender span, .date { font-size: 13px; color: #52626e; }
.list a { display: block; margin: 0 0 6px; padding: 6px 10px; border: 1px solid #c3ced6; border-radius: 6px; background: #ffffff; color: #1d2b36; text-decoration: none; text-align: center; white-space: nowrap; }
.list img, .card p img { vertical-align: middle; margin: -3px 2px; }
@media (max-width: 560px) {
  .page { padding: 0 !important; }
  .card { border: 0 !important; border-radius: 0 !important; }
  .card p { font-size: 14px; }
  .card p a { display: inline-block; padding: 5px 0; }
  .card h1 { font-size: 18px !important; }
  .list, .list tbody, .list tr, .list td, .list th { display: block; width: auto; }
  .list thead { display: none; }
  .list tr { border-bottom: 1px solid #d5dde3; padding: 10px 16px; }
  .list td, .list th { border: 0 !important; padding: 2px 0 !important; }
  .list a { display: inline-block; margin: 6px 4px 0 0; padding: 9px 12px; }
  .list td + td a { margin: 0 4px 0 0; padding: 9px 2px; border: 0; background: transparent; color: #1a5a86; font-size: 13px; text-decoration: underline; }
}
@media (prefers-color-scheme: dark) {
  .page { background: #12171b !important; }
  .card, .odd { background: #1c2329 !important; }
  .even { background: #212a31 !important; }
  .card, .card td, .card th, .card p, .card h1, .list tr, .list a { color: #e3eaef !important; border-color: #46535e !important; }
  .list a { background: transparent !important; }
  .list td + td a, .card p a { color: #8cc4ee !important; }
  .card .quiet, .card .sender span, .card .date { color: #a9b7c2 !important; }
}
</style>
</head>
<body dir="@@=dir@@" style="margin:0;padding:0">
<div role="main" dir="@@=dir@@">
<table role="presentation" class="page" width="100%" cellpadding="0" cellspacing="0" border="0" style="background:#eff3f6;padding:16px 8px">
<tr><td align="center">
<table role="presentation" class="card" width="100%" cellpadding="0" cellspacing="0" border="0" style="max-width:760px;background:#ffffff;border:1px solid #d5dde3;border-radius:8px;font-family:'Segoe UI',Roboto,Helvetica,Arial,sans-serif;font-size:15px;line-height:1.45;color:#1d2b36;text-align:@@=start@@">
@# Shown in place of the picture at the top of the report, when pictures are not loaded.
<tr><td align="@@=start@@" style="padding:18px 16px 0">{{TITLE_LOGO:x-alt=@@Logo@@:h:x-img-cid=TITLE_LOGO:none}}</td></tr>
<tr><td align="@@=start@@" style="padding:10px 16px 14px">
<h1 style="margin:0 0 6px;font-size:21px;line-height:1.25;font-weight:600;color:#1d2b36">@@{{QUARANTINE_MESSAGES_COUNT}} message held in your spam quarantine||{{QUARANTINE_MESSAGES_COUNT}} messages held in your spam quarantine@@</h1>
@# Below the heading: whose messages these are, and where. MAILBOX_ADDRESS is a mail address, SITE_NAME the name of the
@# mail site, such as mail.example.org.
<p class="quiet" style="margin:0;color:#52626e">@@{{MAILBOX_ADDRESS}} at {{SITE_NAME}}@@</p>
@# The time that the report covers: two dates with times, then the name of the time zone, such as "CET, UTC+01:00".
<p class="quiet" style="margin:0 0 10px;color:#52626e">@@{{QUARANTINE_PERIOD_FROM}} to {{QUARANTINE_PERIOD_TO}} ({{TIME_ZONE}})@@</p>
<p style="margin:0 0 6px">@@These messages look like spam, so they were kept out of your inbox. You need not do anything about those that you do not want.@@</p>
@# "Release" and "Delete" must be the same words as on the buttons below.
<p style="margin:0">@@“Release” delivers a message to your mailbox. “Delete” removes it for good.@@</p>
</td></tr>
<tr><td style="padding:0">
@# Name of the table, read out by screen readers.
<table class="list" width="100%" cellpadding="8" cellspacing="0" border="0" aria-label="@@Held messages@@" style="border-collapse:collapse">
{{#TABLE_HEADER}}<thead>
<tr>
@# Head of the column that shows number, sender, subject and date of a message; also in "Release: Message 3".
<th class="quiet" scope="col" align="@@=start@@">@@Message@@</th>
{{#SPAM_WEB_ACTION}}
@# Head of the column with the buttons "Release" and "Delete" that open a web page.
<th class="quiet" scope="col" align="@@=start@@" width="1%">@@On the web@@</th>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
@# Head of the column with the buttons "Release" and "Delete" that write a mail.
<th class="quiet" scope="col" align="@@=start@@" width="1%">@@By mail@@</th>
{{/SPAM_EMAIL_ACTION}}</tr>
</thead>
{{/TABLE_HEADER}}<tbody align="@@=start@@" valign="top">
{{#QUARANTINE_MESSAGES_TABLE}}<tr {{#ODD_ROW}}class="odd"{{/ODD_ROW}}{{#EVEN_ROW}}class="even" bgcolor="#f7f9fa"{{/EVEN_ROW}}>
<th scope="row" style="font-weight:400">
@# Stands in place of the sender, or of the subject, of a message that has none.
<div class="sender"><b dir="auto">{{#NO_SENDER}}@@(no sender)@@{{/NO_SENDER}}{{SENDER_NAME:x-inert=60}}</b> <span dir="ltr">{{#WITH_SENDER_ADDRESS}}&lt;{{SENDER_ADDRESS:x-inert=100}}&gt;{{/WITH_SENDER_ADDRESS}}</span></div>
<div class="subject" dir="auto">{{#NO_SUBJECT}}@@(no subject)@@{{/NO_SUBJECT}}{{ORIG_SUBJECT:x-inert=120}}</div>
<div class="date">{{ROW_NUMBER}} · {{ORIG_DATE}}</div></th>
{{#SPAM_WEB_ACTION}}<td>
@# A button that delivers the message to the mailbox. Screen readers read "Release: Message 3".
<a href="{{RELEASE_URL}}" aria-label="@@Release@@: @@Message@@ {{ROW_NUMBER}}">{{ICON_RELEASE:x-alt=:h:x-img-cid=ICON_RELEASE:none}}@@Release@@</a>
<a href="{{DELETE_URL}}" aria-label="@@Delete@@: @@Message@@ {{ROW_NUMBER}}">{{ICON_DELETE:x-alt=:h:x-img-cid=ICON_DELETE:none}}@@Delete@@</a></td>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<td><a href="{{RELEASE_EMAIL_ADDR:h:none}}" aria-label="@@Release by mail@@: @@Message@@ {{ROW_NUMBER}}">@@Release by mail@@</a>
<a href="{{DELETE_EMAIL_ADDR:h:none}}" aria-label="@@Delete by mail@@: @@Message@@ {{ROW_NUMBER}}">@@Delete by mail@@</a></td>
{{/SPAM_EMAIL_ACTION}}</tr>
{{/QUARANTINE_MESSAGES_TABLE}}</tbody>
</table>
</td></tr>
<tr><td align="@@=start@@" style="padding:18px 16px 8px">
{{#SPAM_WEB_ACTION}}<p style="margin:0 0 8px"><a href="{{DELETE_ALL_URL}}" style="color:#1a5a86">{{ICON_DELALL:x-alt=:h:x-img-cid=ICON_DELALL:none}}@@Delete all of these messages on the web@@</a></p>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<p style="margin:0 0 8px"><a href="{{DELETE_ALL_EMAIL_ADDR:h:none}}" style="color:#1a5a86">{{ICON_DELALL:x-alt=:h:x-img-cid=ICON_DELALL:none}}@@Delete all of these messages by mail@@</a></p>
{{/SPAM_EMAIL_ACTION}}{{#SPAM_OTHER_ACTION}}
@# A link to the reader's settings on the web.
<p style="margin:0 0 8px"><a href="{{PREFERENCE_URL}}" style="color:#1a5a86">@@Change your quarantine preferences@@</a></p>
{{/SPAM_OTHER_ACTION}}</td></tr>
<tr><td align="@@=start@@" class="quiet" style="padding:0 16px 18px;font-size:13px;color:#52626e">
<p class="quiet" style="margin:0 0 6px">{{#SPAM_WEB_ACTION}}
@# About the buttons in the column "On the web".
@@On the web, a page is shown first, where you confirm.@@{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
@# About the buttons in the column "By mail".
@@By mail, your mail program opens a prepared message: send it as it is.@@{{/SPAM_EMAIL_ACTION}}</p>
<p class="quiet" style="margin:0 0 6px">@@You receive this report because {{SITE_NAME}} holds messages for {{MAILBOX_ADDRESS}} that look like spam.@@ @@Your mail administrators can change or stop these reports.@@</p>
{{#SPAM_WEB_ACTION}}<p class="quiet" style="margin:0">@@The links work without a password, so please do not forward this report.@@</p>
{{/SPAM_WEB_ACTION}}</td></tr>
</table>
</td></tr>
</table>
</div>
</body>
</html>
