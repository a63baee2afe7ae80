// The picture: the Orb side on the left, the module in the middle, the two links on the right, and lines between them.

import { byId, deviceIcon, h, icon, plural, s, show } from './dom.js';

const STAGES = [['cable', 'Cable'], ['beating', 'Beating'], ['stream', 'Stream'], ['check', 'Check'],
  ['described', 'Described']];
const FACT_TEXTS = { yes: 'yes', no: 'no', underway: 'underway', unknown: 'not seen yet', not_needed: 'not needed' };
const LANE_NAMES = { primary: 'Primary link', secondary: 'Secondary link' };
const MOST_ROWS = 6;
const MOST_LINES = 60;

const isInternal = (state, device) => !device.local && device.owner === state.module.hid && state.module.hid !== '';
const isUp = (link) => link.beating === 'yes' && link.stream === 'yes';

function deviceRow(device, lane) {
  return h('li', { class: 'device', 'data-anchor': `${device.hid} ${lane}` }, deviceIcon(device.type),
    h('b', { class: 'hid' }, device.hid), h('span', { class: 'type' }, device.type),
    device.rate && h('span', { class: 'rate num' }, device.rate));
}

function deviceList(state, all, lane, empty) {
  if (!all.length) return empty && h('p', { class: 'empty' }, empty);
  // Those that have patches come first, since lines lead to them.
  const patched = new Set(state.patches.flatMap((patch) => [patch.source.hid, patch.destination.hid]));
  const devices = all.length > MOST_ROWS ? [...all].sort((a, b) => patched.has(b.hid) - patched.has(a.hid)) : all;
  return h('ul', { class: 'list' }, devices.slice(0, MOST_ROWS).map((device) => deviceRow(device, lane)),
    devices.length > MOST_ROWS && h('li', { class: 'more', 'data-anchor': `more ${lane}` }, `and ${plural(devices.length - MOST_ROWS, 'more device')}`));
}

const fact = (value, label) => h('li', { class: `fact fact-${value}`, title: `${label}: ${FACT_TEXTS[value]}` },
  icon(value), h('span', null, label), h('span', { class: 'hidden' }, `: ${FACT_TEXTS[value]}`));

const stateWord = (name, word) => h('span', { class: `state state-${name}` }, icon(name), word);

function orbCard(state) {
  const stream = state.links.orb.stream;
  const inside = state.devices.filter((device) => isInternal(state, device));
  return h('article', { class: 'card' },
    h('header', null, h('h3', null, 'Orb router'),
      stateWord(stream, stream === 'yes' ? 'connected' : stream === 'no' ? 'not connected' : 'not seen')),
    deviceList(state, inside, 'orb', 'It has not told the module who it is.'),
    h('ul', { class: 'facts-row' }, fact(state.module.updateService, 'Update service')));
}

function neighbourOf(state, lane) {
  const link = state.links[lane];
  if (!link.neighbour) return null;
  return state.devices.find((device) => device.hid === link.neighbour) ||
    { hid: link.neighbour, type: link.type, rate: '' };
}

function laneCard(state, lane) {
  const link = state.links[lane];
  const neighbour = neighbourOf(state, lane);
  const beyond = state.devices.filter(
    (device) => !device.local && !isInternal(state, device) && device[lane].online);
  const up = isUp(link);
  const word = up ? 'up' : link.beating === 'yes' ? 'coming up' : link.beating === 'no' || link.stream === 'no' ? 'down' : 'not seen';
  return h('article', { class: `card lane ${up ? 'up' : 'down'}` },
    h('header', null, h('h3', null, LANE_NAMES[lane]),
      stateWord(up ? 'yes' : word === 'coming up' ? 'underway' : word === 'down' ? 'no' : 'unknown', word)),
    h('ol', { class: 'facts-row' }, STAGES.map(([key, label]) => fact(link[key], label))),
    neighbour ? h('ul', { class: 'list' }, deviceRow(neighbour, lane)) : h('p', { class: 'empty' }, 'Nobody is heard.'),
    link.localAddress && h('p', { class: 'addresses num' }, `${link.localAddress} to ${link.remoteAddress}`),
    beyond.length > 0 && h('div', { class: 'beyond' }, h('h4', null, 'Beyond it'), deviceList(state, beyond, lane)));
}

const port = (anchor, name, endpoint, count) => h('div', { class: `port port-${anchor}`, 'data-port': anchor },
  h('b', null, name), h('span', { class: 'num' }, `${endpoint} · ${count}`));

function moduleCard(state) {
  const [program, ...rest] = (state.module.version || 'Module').split(' ');
  const network = { yes: 'master router in charge', no: 'no master router' }[state.module.network];
  const selected = state.clocks.sources.find((source) => source.selected);
  return h('article', { class: 'card module' },
    h('header', null, h('h3', null, program, ' ', h('span', { class: 'version num' }, rest.join(' '))),
      h('span', { class: 'hid' }, state.module.hid || 'no identity yet')),
    h('div', { class: 'fabric' },
      port('orb', 'Orb', 'bulk', state.slots.orb.length),
      h('div', { class: 'ports' }, port('primary', 'Primary', 'k0', state.slots.primary.length),
        port('secondary', 'Secondary', 'k1', state.slots.secondary.length))),
    h('p', { class: 'module-foot' }, icon('clock'), h('span', null, 'Clock ', h('b', null, state.clocks.active || '–'),
      selected && selected.lock ? `, ${selected.lock}` : ''), network && h('span', { class: 'network' }, network)));
}

export function renderFlow(state) {
  show(byId('orb'), orbCard(state));
  show(byId('module'), moduleCard(state));
  show(byId('primary'), laneCard(state, 'primary'));
  show(byId('secondary'), laneCard(state, 'secondary'));
}

/// Each way that audio takes or may take: from where to where, through which ports, and in what state.
export function waysOf(state) {
  const ways = new Map();
  for (const [index, patch] of state.patches.entries()) {
    const inside = state.devices.some((device) => device.hid === patch.destination.hid && isInternal(state, device));
    for (const lane of ['primary', 'secondary']) {
      const side = patch[lane];
      if (side.state === 'not_sent' || side.state === 'invalid') continue;
      const from = side.link.port === 'unknown' ? lane : side.link.port;
      const to = inside ? 'orb' : lane;
      const kind = side.state === 'success' ? 'working' : side.state === 'reserved' ? 'reserved' : 'waiting';
      const key = [patch.source.hid, patch.destination.hid, from, to, kind].join('|');
      const way = ways.get(key) || { source: patch.source.hid, destination: patch.destination.hid, from, to, kind, patches: [] };
      way.patches.push(index);
      ways.set(key, way);
    }
  }
  return [...ways.values()];
}

const edge = (box, side, origin, offset = 0) => ({ x: (side === 'left' ? box.left : box.right) - origin.left,
  y: (box.top + box.bottom) / 2 - origin.top + offset });

function curve(a, b) {
  const bend = Math.max(24, Math.abs(b.x - a.x) / 2) * Math.sign(b.x - a.x || 1);
  return `C${a.x + bend} ${a.y} ${b.x - bend} ${b.y} ${b.x} ${b.y}`;
}

/// Lines that meet at the same place lie side by side there, in the order in which they come.
class Spread {
  #counts = new Map();
  #next = new Map();

  count(place) { this.#counts.set(place, (this.#counts.get(place) || 0) + 1); }
  take(place, room) {
    const count = this.#counts.get(place);
    const index = this.#next.get(place) || 0;
    this.#next.set(place, index + 1);
    return (index - (count - 1) / 2) * Math.min(7, room / count);
  }
}

function cable(lane, state, cards, ports, origin) {
  const up = lane === 'orb' ? state.links.orb.stream === 'yes' : isUp(state.links[lane]);
  const atPort = edge(ports[lane], lane === 'orb' ? 'left' : 'right', origin);
  const card = cards[lane];
  const atCard = { x: edge(card, lane === 'orb' ? 'right' : 'left', origin).x,
    y: Math.min(Math.max(atPort.y, card.top - origin.top + 18), card.bottom - origin.top - 18) };
  const line = s('path', { class: `cable ${up ? 'up' : 'down'}`, 'data-cable': lane, d: `M${atCard.x} ${atCard.y}${curve(atCard, atPort)}` });
  if (up) return line;
  const x = (atCard.x + atPort.x) / 2;
  const y = (atCard.y + atPort.y) / 2;
  return [line, s('path', { class: 'cut', d: `M${x - 6} ${y - 6}l12 12M${x + 6} ${y - 6}l-12 12` })];
}

/// Lines lie between the cards, so they are drawn where the cards are.
export function renderLines(state, lit) {
  const flow = byId('flow');
  const svg = byId('lines');
  if (getComputedStyle(svg).display === 'none') return;
  const origin = flow.getBoundingClientRect();
  const box = (selector) => flow.querySelector(selector)?.getBoundingClientRect();
  const anchors = new Map([...flow.querySelectorAll('[data-anchor]')].map((element) => [element.dataset.anchor, element.getBoundingClientRect()]));
  const cards = { orb: box('#orb .card'), primary: box('#primary .card'), secondary: box('#secondary .card') };
  const ports = { orb: box('.port-orb'), primary: box('.port-primary'), secondary: box('.port-secondary') };
  const outer = (lane) => (lane === 'orb' ? 'left' : 'right');
  const inner = (lane) => (lane === 'orb' ? 'right' : 'left');
  svg.setAttribute('viewBox', `0 0 ${origin.width} ${origin.height}`);

  const ends = (hid, lane) => {
    const place = anchors.has(`${hid} ${lane}`) ? `${hid} ${lane}` : `more ${lane}`;
    return { place, box: anchors.get(place) || cards[lane] };
  };
  const all = waysOf(state);
  const height = { orb: 0, primary: 1, secondary: 2 };
  const merged = new Map();
  for (const way of all) {
    const start = ends(way.source, way.from);
    const end = ends(way.destination, way.to);
    const key = [start.place, end.place, way.from, way.to, way.kind].join('|');
    const same = merged.get(key);
    if (same) same.patches.push(...way.patches);
    else merged.set(key, { ...way, start, end, patches: [...way.patches] });
  }
  const ways = [...merged.values()].slice(0, MOST_LINES).sort((a, b) => height[a.from] + height[a.to] - height[b.from] - height[b.to] ||
    a.start.box.top + a.end.box.top - b.start.box.top - b.end.box.top);
  const spread = new Spread();
  for (const way of ways) [way.start.place, way.end.place, way.from, way.to].forEach((place) => spread.count(place));

  const lines = [];
  const counts = [];
  for (const way of ways) {
    const from = spread.take(way.from, 34);
    const to = spread.take(way.to, 34);
    const start = edge(way.start.box, inner(way.from), origin, spread.take(way.start.place, 20));
    const end = edge(way.end.box, inner(way.to), origin, spread.take(way.end.place, 20));
    const back = way.to === 'orb' ? 8 : -8;
    const tip = { x: end.x + back, y: end.y };
    const into = edge(ports[way.from], outer(way.from), origin, from);
    const inside = edge(ports[way.from], inner(way.from), origin, from);
    const leave = edge(ports[way.to], inner(way.to), origin, to);
    const out = edge(ports[way.to], outer(way.to), origin, to);
    const dim = lit !== null && !way.patches.includes(lit) ? ' dim' : '';
    lines.push(s('path', { class: `way ${way.kind}${dim}${lit !== null && !dim ? ' lit' : ''}`,
      'data-way': `${way.source} ${way.destination} ${way.from} ${way.to} ${way.kind}`,
      d: `M${start.x} ${start.y}${curve(start, into)}L${inside.x} ${inside.y}${curve(inside, leave)}L${out.x} ${out.y}${curve(out, tip)}` }),
    s('path', { class: `tip ${way.kind}${dim}`, d: `M${end.x} ${end.y}l${back} -4.5v9z` }));
    if (way.patches.length > 1) {
      const x = start.x + (into.x - start.x) * .12;
      const y = start.y + (into.y - start.y) * .04;
      counts.push(s('g', { class: `count ${way.kind}${dim}` }, s('rect', { x: x - 12, y: y - 8, width: 24, height: 16, rx: 8 }),
        s('text', { x, y: y + 4 }, String(way.patches.length))));
    }
  }
  svg.classList.toggle('crowded', ways.length > 16);
  svg.replaceChildren(...['orb', 'primary', 'secondary'].flatMap((lane) => cable(lane, state, cards, ports, origin)), ...lines, ...counts);

  show(byId('legend'),
    [['working', 'working'], ['reserved', 'reserved'], ['waiting', 'waiting for an answer']].map(([kind, text]) => h('li', null,
      s('svg', { class: 'sample', viewBox: '0 0 34 8', 'aria-hidden': 'true' }, s('path', { class: `way ${kind}`, d: 'M1 4h32' })), text)),
    merged.size > MOST_LINES && h('li', null, `${merged.size - MOST_LINES} more are in the table`));
}
