// Where links lead: a server in the place of the web interface, and how a mail program takes a mail link apart.
//
// The server keeps the first line of each request as it came: one that understands requests would show it decoded.

import { execFileSync } from "node:child_process";
import { EventEmitter, once } from "node:events";
import { readFileSync } from "node:fs";
import path from "node:path";
import tls from "node:tls";

/** Listens on a free port of 127.0.0.1: { port, next, close }. next() waits five seconds for the next request line. */
export async function startLinkServer(directory) {
  const [key, cert] = ["key.pem", "cert.pem"].map((file) => path.join(directory, file));
  execFileSync("openssl", ["req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
    "-subj", "/CN=127.0.0.1", "-keyout", key, "-out", cert], { stdio: "pipe" });
  const lines = [];
  const arrived = new EventEmitter();
  const server = tls.createServer({ key: readFileSync(key), cert: readFileSync(cert) }, (socket) => {
    let received = "";
    socket.on("error", () => {});  // a browser may hang up; a request that does not come is told by next()
    socket.setEncoding("latin1").on("data", (part) => {
      received += part;
      if (!received.includes("\r\n\r\n")) return;
      lines.push(received.split("\r\n", 1)[0]);
      arrived.emit("request");
      socket.end("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");  // the browser stays on the report's page
    });
  });
  server.listen(0, "127.0.0.1");
  await once(server, "listening");

  const next = async () => {
    if (lines.length === 0) await once(arrived, "request", { signal: AbortSignal.timeout(5000) }).catch(() => {});
    return lines.shift() ?? "no request";
  };
  return { port: server.address().port, next, close: () => server.close() };
}

// RFC 6068, section 2: what may stand in an address or a header field besides "%" and two hexadecimal digits.
const TEXT = /^(?:[A-Za-z0-9\-._~!$'()*+,;:@]|%[0-9A-Fa-f]{2})+$/;

/** What a mail link says as { to, subject, ... }; throws when it has another form, a field twice or bytes that are not UTF-8. */
export function parseMailto(link) {
  const [to, fields, ...others] = link.replace(/^mailto:/, "").split("?");
  const parts = fields.split("&").map((field) => field.split("="));
  const texts = [to, ...parts.flat()];
  const names = parts.map(([name]) => decodeURIComponent(name).toLowerCase());
  const good = texts.every((text) => TEXT.test(text)) && parts.every((part) => part.length === 2);
  if (!good || others.length || new Set(names).size < names.length) throw new Error(`not a mail link: ${link}`);
  return Object.fromEntries([["to", decodeURIComponent(to)], ...parts.map(([, value], at) => [names[at], decodeURIComponent(value)])]);
}
