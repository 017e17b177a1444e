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
about 100 kB: a row has no more than its texts and links, and gets its looks here. Where this block is not honoured,
rows still show as a table of plain links. }}
<style>
:root { color-scheme: light dark; }
.card h1, .card p, .list th, .list td { overflow-wrap: anywhere; word-break: break-word; }
.list th, .list td { border-bottom: 1px solid #d5dde3; }
.list th { font-weight: 400; }
.list thead th { border-width: 2px; font-size: 13px; font-weight: 600; color: #52626e; white-space: nowrap; }
.list th:first-child { padding-@@=start@@: 16px; }
.list b { font-weight: 600; }
.list span { display: inline-block; }
.list span, .list small { font-size: 13px; color: #52626e; }
.list a { display: block; margin: 0 0 6px; padding: 6px 10px; border: 1px solid #4c957c; border-radius: 6px; background: #ffffff; color: #14614a; text-decoration: none; text-align: center; white-space: nowrap; }
.list br { display: none; }
.list br + a { color: #a02c2c; border-color: #82909b; }
.list i { font-size: 0; }
.card p img { vertical-align: middle; margin: -3px 2px; }
@media (max-width: 560px) {
  .page { padding: 0 !important; }
  .card { border: 0 !important; border-radius: 0 !important; }
  .head { padding: 8px 16px 4px !important; }
  .head img { display: block; max-height: 28px; width: auto; }
  .card p { font-size: 14px; line-height: 1.35; }
  .card .quiet { font-size: 13px; }
  .card h1 { font-size: 17px !important; margin: 0 0 4px !important; }
  .list, .list tbody, .list tr, .list td, .list th { display: block; width: auto; }
  .list thead { display: none; }
  .list tr { border-bottom: 1px solid #d5dde3; padding: 8px 16px 4px; }
  .list td, .list th { border: 0 !important; padding: 0 !important; line-height: 1.35; }
  .list a { display: inline-block; min-width: 84px; margin: 6px 0 0; margin-@@=end@@: 8px; padding: 8px 10px; }
  .list td + td a { min-width: 0; margin: 0; margin-@@=end@@: 8px; padding: 10px 2px; border: 0; background: transparent; font-size: 12px; text-decoration: underline; }
  .card p a { display: inline-block; padding: 8px 0; }
  .card p img { display: none; }
}
@media (prefers-color-scheme: dark) {
  .page { background: #12171b !important; }
  .card { background: #1c2329 !important; }
  .even { background: #212a31 !important; }
  .card, .card td, .card th, .card p, .card h1, .list tr { color: #e3eaef !important; border-color: #46535e !important; }
  .list a { background: transparent !important; color: #7fd6b4 !important; border-color: #3f7a66 !important; }
  .list br + a { color: #f2a3a0 !important; border-color: #5b6975 !important; }
  .card p a { color: #8cc4ee !important; }
  .card .quiet, .list span, .list small { color: #a9b7c2 !important; }
}
</style>
</head>
<body dir="@@=dir@@" style="margin:0;padding:0">
<div role="main" dir="@@=dir@@">
<table role="presentation" class="page" width="100%" cellpadding="0" cellspacing="0" border="0" style="background:#eff3f6;padding:16px 8px">
<tr><td align="center">
<table role="presentation" class="card" width="100%" cellpadding="0" cellspacing="0" border="0" style="max-width:760px;background:#ffffff;border:1px solid #d5dde3;border-radius:8px;font-family:'Segoe UI',Roboto,Helvetica,Arial,sans-serif;font-size:15px;line-height:1.45;color:#1d2b36;text-align:@@=start@@">
@# Shown in place of the picture at the top of the report, when pictures are not loaded.
<tr><td align="@@=start@@" class="head" style="padding:18px 16px 14px">
<div style="margin:0 0 8px">{{TITLE_LOGO:x-alt=@@Logo@@:h:x-img-cid=TITLE_LOGO:none}}</div>
<h1 style="margin:0 0 6px;font-size:21px;line-height:1.25;font-weight:600;color:#1d2b36">@@{{QUARANTINE_MESSAGES_COUNT}} message held in your spam quarantine||{{QUARANTINE_MESSAGES_COUNT}} messages held in your spam quarantine@@</h1>
@# Below the heading: whose messages these are, and where. MAILBOX_ADDRESS is a mail address, SITE_NAME the name of the
@# mail site, such as mail.example.org.
<p class="quiet" style="margin:0;color:#52626e">@@{{MAILBOX_ADDRESS}} at {{SITE_NAME}}@@</p>
@# The time that the report covers: two dates with times, then the name of the time zone, such as "Central European
@# Standard Time, UTC+1".
<p class="quiet" style="margin:0 0 6px;color:#52626e">@@{{QUARANTINE_PERIOD_FROM}} to {{QUARANTINE_PERIOD_TO}} ({{TIME_ZONE}})@@</p>
@# The first form is for a report of one message. It need not name the number.
<p style="margin:0">@@This message looks like spam, so it was kept out of your inbox.||These messages look like spam, so they were kept out of your inbox.@@</p>
</td></tr>
<tr><td style="padding:0">
@# Name of the table, read out by screen readers.
<table class="list" width="100%" cellpadding="8" cellspacing="0" border="0" aria-label="@@Held messages@@" style="border-collapse:collapse">
{{#TABLE_HEADER}}<thead>
<tr>
@# Head of the column that shows number, sender, subject and date of a message.
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
{{#QUARANTINE_MESSAGES_TABLE}}<tr{{#EVEN_ROW}} class="even" bgcolor="#f7f9fa"{{/EVEN_ROW}}>
@# Stands in place of the sender, or of the subject, of a message that has none.
<th scope="row"><b dir="auto">{{#NO_SENDER}}@@(no sender)@@{{/NO_SENDER}}{{SENDER_NAME:x-inert=40}}</b> <span dir="ltr">{{#WITH_SENDER_ADDRESS}}&lt;{{SENDER_ADDRESS:x-inert=80}}&gt;{{/WITH_SENDER_ADDRESS}}</span>
<div dir="auto">{{#NO_SUBJECT}}@@(no subject)@@{{/NO_SUBJECT}}{{ORIG_SUBJECT:x-inert=100}}</div><small>{{ROW_NUMBER}} · {{ORIG_DATE}}</small></th>
{{#SPAM_WEB_ACTION}}
@# Two buttons: deliver the message to the mailbox, remove it. Screen readers say its number behind them: "Release 3".
<td><a href="{{RELEASE_URL}}">@@Release@@<i> {{ROW_NUMBER}}</i></a><br><a href="{{DELETE_URL}}">@@Delete@@<i> {{ROW_NUMBER}}</i></a></td>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<td><a href="{{RELEASE_EMAIL_ADDR:h:none}}">@@Release by mail@@<i> {{ROW_NUMBER}}</i></a><br><a href="{{DELETE_EMAIL_ADDR:h:none}}">@@Delete by mail@@<i> {{ROW_NUMBER}}</i></a></td>
{{/SPAM_EMAIL_ACTION}}</tr>
{{/QUARANTINE_MESSAGES_TABLE}}</tbody>
</table>
</td></tr>
<tr><td align="@@=start@@" style="padding:14px 16px 8px">
@# "Release" and "Delete" must be the same words as on the buttons.
<p style="margin:0 0 6px">@@“Release” delivers a message to your mailbox. “Delete” removes it for good.@@@@=gap@@@@If you do not want a message, you need not do anything.@@</p>
{{#SPAM_WEB_ACTION}}
@# About the buttons in the column "On the web". The page is one of the site, not of this report.
<p class="quiet" style="margin:0 0 6px;color:#52626e">@@On the web, a page of your mail service opens first.@@</p>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}
@# About the buttons in the column "By mail".
<p class="quiet" style="margin:0 0 12px;color:#52626e">@@By mail, your mail program opens a prepared message: send it as it is.@@</p>
{{/SPAM_EMAIL_ACTION}}{{#SPAM_WEB_ACTION}}<p style="margin:0 0 8px">{{ICON_DELALL:x-alt=:h:x-img-cid=ICON_DELALL:none}}<a href="{{DELETE_ALL_URL}}" style="color:#1a5a86">@@Delete all of these messages on the web@@</a></p>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<p style="margin:0 0 8px">{{ICON_DELALL:x-alt=:h:x-img-cid=ICON_DELALL:none}}<a href="{{DELETE_ALL_EMAIL_ADDR:h:none}}" style="color:#1a5a86">@@Delete all of these messages by mail@@</a></p>
{{/SPAM_EMAIL_ACTION}}{{#SPAM_OTHER_ACTION}}
@# A link to the reader's settings on the web.
<p style="margin:0 0 8px"><a href="{{PREFERENCE_URL}}" style="color:#1a5a86">@@Change your quarantine preferences@@</a></p>
{{/SPAM_OTHER_ACTION}}</td></tr>
<tr><td align="@@=start@@" class="quiet" style="padding:0 16px 18px;font-size:13px;color:#52626e">
<p class="quiet" style="margin:0 0 6px">@@You receive this report because {{SITE_NAME}} holds messages for {{MAILBOX_ADDRESS}} that look like spam.@@@@=gap@@@@Your mail administrators can change or stop these reports.@@</p>
{{#SPAM_WEB_ACTION}}<p class="quiet" style="margin:0">@@The links work without a password, so please do not forward this report.@@</p>
{{/SPAM_WEB_ACTION}}</td></tr>
</table>
</td></tr>
</table>
</div>
</body>
</html>
