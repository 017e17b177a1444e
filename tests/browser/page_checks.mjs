// What must hold for the page of a report. Each function runs inside the browser, so it refers to nothing outside itself,
// and returns sentences that name the element at fault; no sentence, no fault.

/** Whether everything fits: no sideways scrolling, and each action whole, readable, on top and large enough. */
export function layoutFaults() {
  const faults = [];
  const width = window.innerWidth;
  const name = (element) => `<${element.localName}${element.className ? "." + element.className : ""}> `
    + `"${(element.getAttribute("aria-label") ?? element.textContent).trim().replace(/\s+/g, " ").slice(0, 40)}"`;
  const inside = (inner, outer) => inner.left >= outer.left - 0.5 && inner.right <= outer.right + 0.5
    && inner.top >= outer.top - 0.5 && inner.bottom <= outer.bottom + 0.5;
  const show = ({ left, right, top, bottom }) => [left, right, top, bottom].map(Math.round).join(" ");

  const scroll = Math.max(document.documentElement.scrollWidth, document.body.scrollWidth);
  if (scroll > width) faults.push(`the page is ${scroll} px wide`);
  const leaves = (element) => {
    const { left, right } = element.getBoundingClientRect();
    return left < -0.5 || right > width + 0.5;
  };
  const elements = [...document.body.querySelectorAll("*")];
  for (const element of elements.filter((one) => leaves(one) && ![...one.children].some(leaves)).slice(0, 3)) {
    faults.push(`${name(element)} leaves the window: ${show(element.getBoundingClientRect())}`);
  }
  for (const element of elements.filter((one) => one.clientWidth && one.scrollWidth > one.clientWidth + 1)) {
    faults.push(`${name(element)}: its content is cut, ${element.scrollWidth} of ${element.clientWidth} px`);
  }

  for (const link of document.links) {
    const text = document.createRange();
    text.selectNodeContents(link);
    const box = link.getBoundingClientRect();
    if (!text.toString().trim()) faults.push(`${name(link)} shows no words`);
    if (box.height < 24 && width <= 320) faults.push(`${name(link)} is ${box.height} px high`);
    for (let ancestor = link; ancestor; ancestor = ancestor.parentElement) {
      const style = getComputedStyle(ancestor);
      if (style.visibility !== "visible" || style.opacity < 1) faults.push(`${name(link)} is hidden by ${name(ancestor)}`);
      if (style.overflow !== "visible" && !inside(text.getBoundingClientRect(), ancestor.getBoundingClientRect())) {
        faults.push(`${name(link)} is clipped by ${name(ancestor)}`);
      }
    }
    for (const part of text.getClientRects()) {
      const on = document.elementFromPoint(part.left + part.width / 2, part.top + part.height / 2);
      if (!link.contains(on)) faults.push(`${name(link)} at ${show(part)}: there is ${on ? name(on) : "nothing"}`);
    }
  }
  return faults;
}

/** Whether the page needs nothing but itself and says what it is. */
export function documentFaults({ language, direction }) {
  const faults = [];
  const root = document.documentElement;
  if (root.lang !== language) faults.push(`lang="${root.lang}", want ${language}`);
  for (const element of [root, document.body]) {
    if (getComputedStyle(element).direction !== direction) faults.push(`<${element.localName}> is not ${direction}`);
  }
  for (const element of document.querySelectorAll("*")) {
    if (/^(script|iframe|frame|object|embed|form|input|link|base|svg|math|template)$/.test(element.localName)) {
      faults.push(`<${element.localName}> in the page`);
    }
    for (const { name, value } of element.attributes) {
      const wanted = { href: /^(https|mailto):/, src: /^data:image\/(png|jpeg|gif);base64,/, "http-equiv": /^$/ }[name];
      if (/^on|^(srcset|action|background|xlink:href|ping)$/.test(name) || (wanted && !wanted.test(value))) {
        faults.push(`<${element.localName}> has ${name}="${value.slice(0, 60)}"`);
      }
    }
  }
  return faults;
}

/** The page's elements in order, each with its depth and the names of its attributes, without any text or value. */
export function shape() {
  const depth = (node) => (node ? 1 + depth(node.parentElement) : 0);
  const walker = document.createTreeWalker(document, NodeFilter.SHOW_ELEMENT | NodeFilter.SHOW_COMMENT);
  const nodes = [];
  while (walker.nextNode()) {
    const node = walker.currentNode;
    nodes.push(`${depth(node.parentElement)} ${node.nodeName} ${[...(node.attributes ?? [])].map((a) => a.name).join(" ")}`);
  }
  return nodes;
}
