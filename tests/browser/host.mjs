// An example host in a directory of its own and the reports that the command makes of its quarantines.
//
// Called by browser_test.mjs. It knows the formats of the host on disk and of the plain text, and nothing of the code.
// The environment names the command (SPAMREPORT) and the installed files (VELMAR_SHARE).

import { execFileSync } from "node:child_process";
import { mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import path from "node:path";

const DOMAIN = "example.org";

/** The text of a message of which only sender and subject count. Values may hold any byte but line ends. */
export const message = (from, subject) =>
  `From: ${from}\nTo: someone@${DOMAIN}\nMessage-Id: <held@held.example>\nSubject: ${subject}\n\nHeld.\n`;

/** An installed file of the example host. */
export const shipped = (name) => readFileSync(path.join(process.env.VELMAR_SHARE, "demo", name));

export class Host {
  constructor(directory) {
    this.root = path.join(directory, "host");
    this.now = Math.floor(Date.now() / 1000);
    this.held = 0;
    this.identifiers = {};
    mkdirSync(path.join(this.root, "etc/velmar"), { recursive: true });
    writeFileSync(path.join(this.root, "etc/velmar/host.toml"), shipped("host.toml"));
  }

  /** Puts a message into a quarantine, each one older than those before. */
  hold(user, content, name) {
    const quarantine = path.join(this.root, "home", DOMAIN, `${user}~${DOMAIN}`, "quarantine");
    for (const folder of ["cur", "new", "tmp"]) mkdirSync(path.join(quarantine, folder), { recursive: true });
    const file = `${this.now - 60 * ++this.held}.${name}`;
    writeFileSync(path.join(quarantine, "cur", file + ":2,S"), content);
    (this.identifiers[user] ??= []).push(Buffer.from(file + ":2").toString("base64"));
  }

  /** The report of a mailbox in each shipped set: { name, mailbox, html, text, identifiers }, newest message first. */
  reports(user) {
    const mailbox = `${user}@${DOMAIN}`;
    const output = path.join(this.root, "preview", user);
    const period = ["--period", "86400", "--until", String(this.now)];
    execFileSync(process.env.SPAMREPORT,
      ["preview", mailbox, "--root", this.root, ...period, "--all-languages", "--output", output], { stdio: "pipe" });
    const names = readdirSync(output).filter((file) => file.endsWith(".txt")).map((file) => file.slice(0, -4));
    const read = (name, kind) => readFileSync(path.join(output, `${name}.${kind}`), "utf8");
    const identifiers = this.identifiers[user];
    return names.sort().map((name) => ({ name, mailbox, html: read(name, "html"), text: read(name, "txt"), identifiers }));
  }
}

/** The actions that a plain text names, in its order: links as they stand, mails as { to, subject }. */
export function actionsOf({ text, mailbox }) {
  const web = [...text.matchAll(/^ +(https:\S+)$/gm)].map((match) => match[1]);
  const words = text.split(/\s+/);
  const mail = words.flatMap((to, at) => (/^(release|delete)@/.test(to) ?
    [{ to, subject: words.slice(at + 1, at + 4).find((word) => word.includes(mailbox + ":")) }] : []));
  return { web, mail };
}
