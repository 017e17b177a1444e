// How a mail program takes a mail link apart.

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
