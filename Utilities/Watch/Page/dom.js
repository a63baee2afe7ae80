// Elements from values. Text is always inserted as text, never as markup.

const SVG = 'http://www.w3.org/2000/svg';

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes || {})) {
    if (value === undefined || value === null || value === false) continue;
    element.setAttribute(name, value === true ? '' : value);
  }
  element.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export const h = (name, attributes, ...children) => fill(document.createElement(name), attributes, children);
export const s = (name, attributes, ...children) => fill(document.createElementNS(SVG, name), attributes, children);
export const byId = (id) => document.getElementById(id);

/// Replaces the content only if it has changed, so that selections and scroll positions survive.
export function show(element, ...children) {
  const next = element.cloneNode(false);
  fill(next, null, children);
  if (next.isEqualNode(element)) return;
  if (next.innerHTML !== element.innerHTML) element.replaceChildren(...next.childNodes);
}

// Symbols, drawn on a grid of 16. They carry the state by shape; the colour only repeats it.
const PATHS = {
  yes: 'M8 1.5a6.5 6.5 0 1 0 0 13a6.5 6.5 0 0 0 0-13zM4.6 8.3l2.4 2.4l4.6-5',
  no: 'M8 1.8a6.2 6.2 0 1 0 0 12.4a6.2 6.2 0 0 0 0-12.4zM5.6 5.6l4.8 4.8M10.4 5.6l-4.8 4.8',
  underway: 'M8 1.8a6.2 6.2 0 1 0 0 12.4a6.2 6.2 0 0 0 0-12.4zM8 4.5v3.8l2.6 1.6',
  unknown: 'M6 6.2a2 2 0 1 1 2.8 1.9c-.6.3-.8.6-.8 1.3M8 11.6v.1',
  not_needed: 'M5 8h6',
  warn: 'M8 2.2l6.4 11.3H1.6zM8 6.4v3.4M8 11.6v.1',
  device: 'M2.5 4.5h11v7h-11zM5 8h.1M7.5 8h.1M10 8h1.5',
  router: 'M2.5 9h11v4h-11zM5 11h.1M8 9V5M5.5 4.5a3.6 3.6 0 0 1 5 0',
  hub: 'M8 8m-1.8 0a1.8 1.8 0 1 0 3.6 0a1.8 1.8 0 1 0-3.6 0M8 6.2V2.5M6.5 9L3 12M9.5 9L13 12',
  dsp: 'M4 4h8v8H4zM6 4V2M10 4V2M6 14v-2M10 14v-2M4 6H2M4 10H2M14 6h-2M14 10h-2',
  clock: 'M1.5 11h2.5V5h4v6h4V5h2.5',
};

export const icon = (name) =>
  s('svg', { class: `icon icon-${name}`, viewBox: '0 0 16 16', 'aria-hidden': 'true', focusable: 'false' },
    s('path', { d: PATHS[name] || PATHS.unknown }));

export const deviceIcon = (type) =>
  icon({ Router: 'router', KorvoHub: 'hub', OrbDsp: 'dsp' }[type] || 'device');

export const plural = (count, one, many = `${one}s`) => `${count} ${count === 1 ? one : many}`;

const two = (number) => String(number).padStart(2, '0');
export function clockTime(milliseconds) {
  const time = new Date(milliseconds);
  return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}`;
}

export function duration(milliseconds) {
  const seconds = Math.max(0, Math.round(milliseconds / 1000));
  if (seconds < 120) return `${seconds} s`;
  if (seconds < 7200) return `${Math.floor(seconds / 60)} min`;
  return `${Math.floor(seconds / 3600)} h ${two(Math.floor(seconds / 60) % 60)} min`;
}

/// "3-6, 9" of [3, 4, 5, 6, 9].
export function ranges(numbers) {
  const parts = [];
  for (let i = 0; i < numbers.length; ++i) {
    const first = numbers[i];
    while (numbers[i + 1] === numbers[i] + 1) ++i;
    parts.push(first === numbers[i] ? `${first}` : `${first}–${numbers[i]}`);
  }
  return parts.join(', ');
}
