{{%AUTOESCAPE context="HTML"}}<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>Quarantine report</title>
{{! The frame is styled in place. What repeats for each message is styled here, because some mail services cut a mail
after about 100 kB: where this block is not honoured, rows still show as a table of plain links. }}
<style>
.list { font-size: 15px; line-height: 1.4; }
.list th { padding: 6px 8px; border-bottom: 2px solid #dde3e8; font-size: 13px; color: #5b6b78; }
.list td { padding: 10px 8px 4px; border-bottom: 1px solid #dde3e8; vertical-align: top; }
.list th:first-child, .list td:first-child { padding-left: 16px; }
.list .message { padding-bottom: 10px; }
.sender { font-weight: 600; max-height: 11.2em; overflow: hidden; }
.subject { max-height: 7em; overflow: hidden; }
.sender:empty::before { content: "(no sender)"; color: #75848f; }
.subject:empty::before { content: "(no subject)"; color: #75848f; }
.date { font-size: 13px; color: #5b6b78; }
.actions .button { white-space: nowrap; }
.actions div { margin: 0 0 6px; }
.button { display: inline-block; padding: 3px 8px 3px 3px; border: 1px solid #c9d3da; border-radius: 6px; background: #ffffff; color: #1d2b36; text-decoration: none; }
.icon { font-size: 0; line-height: 0; vertical-align: middle; }
.narrow { display: none; }
@media (max-width: 540px) {
  .page { padding: 0 !important; }
  .card { border-radius: 0 !important; }
  .list, .list tbody, .list tr, .list td { display: block; width: auto; }
  .list thead { display: none; }
  .list tr { border-bottom: 1px solid #dde3e8; padding-bottom: 6px; }
  .list .message { border-bottom: 0; padding-bottom: 2px; }
  .list .actions { border-bottom: 0; padding: 2px 16px; }
  .actions div { display: inline-block; margin-right: 8px; }
  .narrow { display: inline; }
}
@media (prefers-color-scheme: dark) {
  .page { background: #14191d !important; }
  .card, .odd td { background: #1d242a !important; }
  .even, .even td { background: #222b32 !important; }
  .card, .card td, .card th, .card p, .card h1 { color: #dfe6eb !important; border-color: #3a4650 !important; }
  .list tr { border-color: #3a4650; }
  .card .quiet, .card .quiet p, .card th, .date { color: #a3b1bc !important; }
  .card a { color: #8cc4ee !important; border-color: #4c5a65 !important; background: transparent !important; }
}
</style>
</head>
<body style="margin:0; padding:0">
<table role="presentation" class="page" width="100%" cellpadding="0" cellspacing="0" border="0" style="background:#f3f5f7; padding:16px 8px">
<tr><td align="center">
<table role="presentation" class="card" width="100%" cellpadding="0" cellspacing="0" border="0" style="max-width:760px; background:#ffffff; border:1px solid #dde3e8; border-radius:8px; font-family:'Segoe UI',Roboto,Helvetica,Arial,sans-serif; font-size:15px; line-height:1.45; color:#1d2b36; text-align:left">
<tr><td style="padding:18px 16px 0">{{TITLE_LOGO:h:x-img-cid=TITLE_LOGO:none}}</td></tr>
<tr><td style="padding:12px 16px 14px">
<h1 style="margin:0 0 8px; font-size:21px; line-height:1.25; font-weight:600; color:#1d2b36">Messages held in your quarantine: {{QUARANTINE_MESSAGES_COUNT}}</h1>
<p class="quiet" style="margin:0 0 8px; color:#5b6b78">{{QUARANTINE_PERIOD_FROM}} &ndash; {{QUARANTINE_PERIOD_TO}}</p>
<p style="margin:0">These messages were taken for spam and kept out of your inbox. Those that you do not want need no action.</p>
</td></tr>
<tr><td style="padding:0">
<table class="list" width="100%" cellpadding="6" cellspacing="0" border="0" style="border-collapse:collapse">
{{#TABLE_HEADER}}<thead>
<tr>
<th scope="col" align="left">Message</th>
{{#SPAM_WEB_ACTION}}<th scope="col" align="left">On the web</th>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<th scope="col" align="left">By mail</th>
{{/SPAM_EMAIL_ACTION}}</tr>
</thead>
{{/TABLE_HEADER}}<tbody>
{{#QUARANTINE_MESSAGES_TABLE}}<tr {{#ODD_ROW}}class="odd"{{/ODD_ROW}}{{#EVEN_ROW}}class="even" bgcolor="#f8fafb"{{/EVEN_ROW}}>
<td class="message" valign="top" style="overflow-wrap:anywhere; word-break:break-word">
<div class="sender" dir="auto">{{ORIG_FROM}}</div>
<div class="subject" dir="auto">{{ORIG_SUBJECT}}</div>
<div class="date">{{ORIG_DATE}}</div>
</td>
{{#SPAM_WEB_ACTION}}<td class="actions" valign="top" width="1%">
<div><a class="button" href="{{RELEASE_URL}}"><span class="icon" aria-hidden="true">{{ICON_RELEASE:h:x-img-cid=ICON_RELEASE:none}}</span>&nbsp;Release</a></div>
<div><a class="button" href="{{DELETE_URL}}"><span class="icon" aria-hidden="true">{{ICON_DELETE:h:x-img-cid=ICON_DELETE:none}}</span>&nbsp;Delete</a></div>
</td>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<td class="actions" valign="top" width="1%">
<div><a class="button" href="{{RELEASE_EMAIL_ADDR:h:none}}"><span class="icon" aria-hidden="true">{{ICON_RELEASE:h:x-img-cid=ICON_RELEASE:none}}</span>&nbsp;Release<span class="narrow"> by mail</span></a></div>
<div><a class="button" href="{{DELETE_EMAIL_ADDR:h:none}}"><span class="icon" aria-hidden="true">{{ICON_DELETE:h:x-img-cid=ICON_DELETE:none}}</span>&nbsp;Delete<span class="narrow"> by mail</span></a></div>
</td>
{{/SPAM_EMAIL_ACTION}}</tr>
{{/QUARANTINE_MESSAGES_TABLE}}</tbody>
</table>
</td></tr>
<tr><td style="padding:16px 16px 10px">
{{#SPAM_WEB_ACTION}}<p style="margin:0 0 8px"><a class="button" href="{{DELETE_ALL_URL}}"><span class="icon" aria-hidden="true">{{ICON_DELALL:h:x-img-cid=ICON_DELALL:none}}</span>&nbsp;Delete all of these messages</a></p>
{{/SPAM_WEB_ACTION}}{{#SPAM_EMAIL_ACTION}}<p style="margin:0 0 8px"><a class="button" href="{{DELETE_ALL_EMAIL_ADDR:h:none}}"><span class="icon" aria-hidden="true">{{ICON_DELALL:h:x-img-cid=ICON_DELALL:none}}</span>&nbsp;Delete all of these messages by mail</a></p>
{{/SPAM_EMAIL_ACTION}}</td></tr>
<tr><td class="quiet" style="padding:0 16px 18px; font-size:13px; color:#5b6b78">
{{#SPAM_OTHER_ACTION}}<p style="margin:0 0 6px"><a href="{{PREFERENCE_URL}}" style="color:#1f5f8b">Preferences</a></p>
{{/SPAM_OTHER_ACTION}}{{#SPAM_WEB_ACTION}}<p style="margin:0">The links act on your quarantine without a password. Please do not forward this mail.</p>
{{/SPAM_WEB_ACTION}}</td></tr>
</table>
</td></tr>
</table>
</body>
</html>
