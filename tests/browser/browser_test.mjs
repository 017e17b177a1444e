// Reports of an example host in Chromium: every shipped set at the widths of a phone, a mail program's pane and a
// window, light and dark; a page of hostile texts beside its harmless twin; where every link leads.
//
// Run by ctest as "browser". Ends with 77, which counts as skipped, where the browser or its driver is not installed:
// scripts/setup browser brings both. Each fault names the set, the view and the element.

import { spawnSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import os from "node:os";
import path from "node:path";
import { Host, actionsOf, message, shipped } from "./host.mjs";
import { parseMailto } from "./links.mjs";
import { documentFaults, layoutFaults, shape } from "./page_checks.mjs";

const WIDTHS = [320, 600, 1024];
const RIGHT_TO_LEFT = ["ar", "he"];
const TAGS = { "": "en", "zh-CN": "zh-Hans", "zh-TW": "zh-Hant" };
const SETS = 20;
const EACH_DIRECTION = ["default", "default-ar"];
const PAGE = "https://report.example/page.html";

// A mailbox and names of files that links must carry unharmed: in base64 they make "+", "/" and "=".
const USER = "accounts.receivable+quarantine";
const ODD_NAMES = ["M1,S=1:2", "%41%2B%20+&=#", "é~~~???>>>", "日本語ÿÿÿ", "a b'\"<>\\"];
const SHOWN = ["long-word", "from-long", "emoji", "arabic-utf8", "hebrew-utf8", "hindi-utf8", "japanese-utf8", "no-from-no-subject",
  "long-subject", "combining-pile", "plain-ascii"];

const TWIN = ["Amber Finch <offers@lantern.example>", "Your parcel is waiting"];
const HOSTILE = [
  { from: '"</b></th></tr></table><h1>" <a@evil.example>', subject: "</td></table></body>", shows: "</td></table></body>" },
  { from: "<script>alert(1)</script>", subject: "<script src=//evil.example/x.js></script>", shows: "</script>" },
  { from: '"\\" onclick=\\"alert(1)" <b@evil.example>', subject: "\" onmouseover='alert(1)' x=\"", shows: "onmouseover='alert(1)'" },
  { from: "javascript:alert(1)", subject: "<a href=javascript:alert(1)>Release</a>", shows: "Release</a>" },
  { from: "<!-- <c@evil.example>", subject: "--> <!-- ]]> <![CDATA[", shows: "--> <!-- ]]>" },
  { from: "<img src=https://evil.example/i.png> <d@evil.example>", subject: "https://evil.example/?a=b&c=d", shows: "?a=b&c=d" },
  { from: "\u202eevil\u2066\u200f <e@evil.example>", subject: "\u202egnp.exe\u202c\u2067 \u061c x", shows: "gnp.exe" },
  { from: "\x01\x02\x1b[2J <f@evil.example>", subject: "a\x01b\x7f\u0085\u2028c &lt;i&gt; &#60;", shows: "&lt;i&gt; &#60;" },
  { from: `${"W".repeat(900)} <${"w".repeat(900)}@evil.example>`, subject: "M".repeat(5000), shows: "MMMM" },
  { from: "<style>*{display:none}</style> <h@evil.example>", subject: "</style><meta http-equiv=refresh content=0>", shows: "<meta" },
];

function skip(reason) {
  console.log(`skipped: ${reason}; scripts/setup browser installs it`);
  process.exit(77);
}

const driver = (name) => import(name).catch((error) =>
  (error.code === "ERR_MODULE_NOT_FOUND" ? skip(`there is no ${name}`) : Promise.reject(error)));

/** A page that shows reports alone: what else it asks for is refused and noted. */
async function reportPage(browser) {
  const context = await browser.newContext();
  const requests = [];
  let html = "";
  await context.route("**/*", (route) => {
    if (route.request().url() === PAGE) return route.fulfill({ body: html, contentType: "text/html" });
    requests.push(route.request().url());
    return route.abort();
  });
  const page = await context.newPage();
  const show = (report) => {
    html = report.html;
    return page.goto(PAGE);
  };
  return { page, show, requests };
}

async function axeFaults(page, whole) {
  const options = { resultTypes: ["violations"], rules: { "target-size": { enabled: true } } };
  if (!whole) options.runOnly = ["color-contrast", "link-in-text-block", "target-size"];  // what the view can change
  const { violations } = await page.evaluate((chosen) => window.axe.run(chosen), options);
  const summary = ({ target, failureSummary }) => `${target.join(" ")}: ${failureSummary.replace(/\s+/g, " ")}`;
  return violations.flatMap(({ id, nodes }) => nodes.map((node) => `${id}: ${summary(node)}`));
}

/** Everything about the looks of one report. */
async function look({ page, show, requests }, axe, report, fault) {
  await show(report);
  const code = report.name.replace(/^default-?/, "");
  const want = { language: TAGS[code] ?? code, direction: RIGHT_TO_LEFT.includes(code) ? "rtl" : "ltr" };
  fault(report, "page", await page.evaluate(documentFaults, want));
  await page.evaluate(axe.source);
  for (const width of WIDTHS) {
    await page.setViewportSize({ width, height: 4000 });
    for (const colorScheme of ["light", "dark"]) {
      await page.emulateMedia({ colorScheme });
      const whole = (width === 320) === (colorScheme === "dark") && width !== 600;
      fault(report, `${width} px ${colorScheme}`, [...await page.evaluate(layoutFaults), ...await axeFaults(page, whole)]);
    }
  }
  fault(report, "page", requests.splice(0).map((url) => `asks for ${url}`));
}

const differences = (got, want) => {
  const at = [...Array(Math.max(got.length, want.length)).keys()].filter((index) => got[index] !== want[index]);
  return at.slice(0, 3).map((index) => `${index + 1} of ${want.length}: got ${got[index]}, want ${want[index]}`);
};

/** A mail link in one line, as a mail program understands it. */
function mailOf(link) {
  try {
    const { to, subject, ...others } = parseMailto(link);
    return `${to} ${subject.replace(/^delete_all: /, "delete_all:")} ${Object.keys(others)}`;  // the blank is the page's alone
  } catch (error) {
    return error.message;
  }
}

/** The links of a page lead where its text says, in its order, and the text names the held messages. */
async function compareLinks({ page, show }, report, fault) {
  await show(report);
  const links = await page.evaluate(() => [...document.links].map((link) => ({ raw: link.getAttribute("href"), href: link.href })));
  // Written as the browser would ask for it: what it must encode anew would not be what the text says.
  const web = links.filter(({ raw }) => !raw.startsWith("mailto:")).map(({ raw, href }) => (raw === href ? raw : `${raw} becomes ${href}`));
  const mail = links.map(({ href }) => href).filter((href) => href.startsWith("mailto:")).map(mailOf);
  const want = actionsOf(report);
  fault(report, "web link", differences(web, want.web));
  fault(report, "mail link", differences(mail, want.mail.map(({ to, subject }) => `${to} ${subject} `)));
  const rows = report.identifiers.flatMap((id) => [0, 1].map((way) => `release=${way}:${report.mailbox}:${id}:`));
  fault(report, "link of the text", differences(want.web.slice(0, -2).map((url) => url.replace(/^.*\?|[0-9a-f]{32}$/g, "")), rows));
  const subjects = report.identifiers.flatMap((id) => Array(2).fill(`${report.mailbox}:${id}`));
  fault(report, "subject of the text", differences(want.mail.slice(0, -1).map(({ subject }) => subject), subjects));
}

/** A page of hostile texts has the elements of its harmless twin and shows the texts as such. */
async function compareShapes({ page, show }, hostile, twin, fault) {
  await show(twin);
  const want = await page.evaluate(shape);
  await show(hostile);
  fault(hostile, "element", differences(await page.evaluate(shape), want));
  const text = (await page.evaluate(() => document.body.textContent)).replace(/[\u200b-\u200d\u2060\ufeff]/g, "");
  fault(hostile, "text", HOSTILE.filter(({ shows }) => !text.includes(shows)).map(({ shows }) => `does not show ${shows}`));
}

async function test(browser, axe, directory, fault) {
  const host = new Host(directory);
  for (const [index, name] of SHOWN.entries()) host.hold(USER, shipped(`messages/${name}.eml`), ODD_NAMES[index % ODD_NAMES.length]);
  for (const { from, subject } of HOSTILE) {
    host.hold("hostile", message(from, subject), "held");
    host.hold("harmless", message(...TWIN), "held");
  }
  const sets = host.reports(USER);
  const [hostile, harmless] = ["hostile", "harmless"].map((user) =>
    host.reports(user).filter(({ name }) => EACH_DIRECTION.includes(name)));
  if (sets.length !== SETS || hostile.length !== 2) throw new Error(`${sets.length} sets and ${hostile.length} hostile pages`);

  const waiting = [...sets, ...hostile];
  const worker = async () => {
    const view = await reportPage(browser);
    for (let report = waiting.shift(); report; report = waiting.shift()) await look(view, axe, report, fault);
    return view;
  };
  const [view] = await Promise.all([worker(), worker()]);
  for (const report of [...sets, ...hostile]) await compareLinks(view, report, fault);
  for (const [index, report] of hostile.entries()) await compareShapes(view, report, harmless[index], fault);
}

const executablePath = spawnSync("sh", ["-c", "command -v chromium || command -v chromium-browser"]).stdout.toString().trim();
if (!executablePath) skip("there is no Chromium");
const { chromium } = await driver("playwright-core");
const { default: axe } = await driver("axe-core");
const directory = mkdtempSync(path.join(os.tmpdir(), "velmar-browser-"));
const browser = await chromium.launch({ executablePath });
const faults = [];
try {
  await test(browser, axe, directory, (report, view, found) => {
    faults.push(...found.map((text) => `${report.name} of ${report.mailbox}, ${view}: ${text}`));
  });
} finally {
  await browser.close();
  rmSync(directory, { recursive: true });
}
console.log([...faults, `${faults.length} faults`].join("\n"));
process.exitCode = faults.length ? 1 : 0;
