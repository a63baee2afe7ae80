// The tables below the picture; they say in words all that the picture shows.

import { byId, clockTime, deviceIcon, duration, h, icon, plural, ranges, s, show } from './dom.js';

const SLOTS = 512;
const MOST_PATCHES = 300;
const RECENT = 15 * 60 * 1000;
const STATE_TEXTS = { success: 'working', reserved: 'reserved', sent: 'sent', not_sent: 'not sent',
  awaiting_reply: 'awaiting reply', retry_sent: 'retried', invalid: 'invalid' };
const PORT_TEXTS = { orb: 'Orb', primary: 'Pri', secondary: 'Sec', unknown: '–' };

/// A name in brackets is for those who listen.
const head = (...names) => h('thead', null, h('tr', null, names.map((name) => h('th', { scope: 'col' },
  name.startsWith('(') ? h('span', { class: 'hidden' }, name.slice(1, -1)) : name))));
const none = (columns, text) => h('tr', null, h('td', { colspan: columns, class: 'empty' }, text));
const end = (port) => [h('b', { class: 'hid' }, port.hid), ` ${port.style.toLowerCase()} `, h('span', { class: 'num' }, port.index)];
const side = (entry) => h('td', null, h('span', { class: `chip chip-${entry.state}` }, STATE_TEXTS[entry.state]),
  entry.link.port !== 'unknown' && h('span', { class: 'where num' }, `${PORT_TEXTS[entry.link.port]} ${ranges(entry.link.slots)}`));

export function renderPatches(state, onLit) {
  const table = byId('patches');
  const wanted = byId('patches-filter').value.trim().toLowerCase();
  const counts = {};
  for (const patch of state.patches) counts[patch.state] = (counts[patch.state] || 0) + 1;
  byId('patches-sum').textContent = state.patches.length === 0 ? 'none' :
    Object.entries(counts).map(([name, count]) => `${count} ${STATE_TEXTS[name]}`).join(', ');
  const text = (patch) => `${patch.source.hid} ${patch.source.style} ${patch.source.index} ${patch.destination.hid} ` +
    `${patch.destination.style} ${patch.destination.index} ${STATE_TEXTS[patch.primary.state]} ${STATE_TEXTS[patch.secondary.state]}`;
  const chosen = [...state.patches.entries()].filter(([, patch]) => text(patch).toLowerCase().includes(wanted));
  const rows = chosen.slice(0, MOST_PATCHES).map(([index, patch]) => h('tr', { 'data-patch': index },
    h('td', null, end(patch.source)), h('td', { class: 'arrow' }, '→'), h('td', null, end(patch.destination)),
    side(patch.primary), side(patch.secondary)));
  if (chosen.length > MOST_PATCHES) {
    rows.push(h('tr', null, h('td', { colspan: 5, class: 'more' }, `${chosen.length - MOST_PATCHES} more; filter to see them`)));
  }
  show(table, head('Source', '(to)', 'Destination', 'Primary', 'Secondary'), h('tbody', null, rows.length ? rows : none(5, state.patches.length ? 'None fits the filter.' : 'No patches.')));
  table.onpointerover = (event) => onLit(event.target.closest('tr')?.dataset.patch ?? null);
  table.onpointerleave = () => onLit(null);
}

/// Which of the slots or samples are in use: a mark for each run of neighbours.
function strip(marks, label) {
  return s('svg', { class: 'strip', viewBox: `0 0 ${SLOTS} 10`, preserveAspectRatio: 'none', role: 'img', 'aria-label': label },
    s('rect', { class: 'ground', width: SLOTS, height: 10 }),
    marks.map(([first, last, name]) => s('rect', { class: `mark mark-${name}`, x: first, width: Math.max(last - first + 1, 2.5), height: 10 })));
}

export function renderRoutes(state) {
  let routed = 0;
  const samples = (range) => (range[0] === range[1] ? `${range[0]}` : `${range[0]}–${range[1]}`);
  const sinks = state.routes.map((sink) => {
    const count = sink.runs.reduce((sum, run) => sum + run.to[1] - run.to[0] + 1, 0);
    routed += count;
    return h('div', { class: 'sink' },
      h('h3', null, h('span', { class: 'endpoint' }, sink.sink), h('span', { class: 'num sum' }, `${count} of ${sink.samples}`)),
      strip(sink.runs.map((run) => [...run.to, run.source.replace(/\W/g, '')]), `${count} of ${sink.samples} samples of ${sink.sink} have a source`),
      sink.runs.length > 0 && h('ul', { class: 'runs' }, sink.runs.slice(0, 200).map((run) => h('li', { class: 'num' },
        h('span', { class: `endpoint endpoint-${run.source.replace(/\W/g, '')}` }, run.source), ` ${samples(run.from)} → ${samples(run.to)}`))));
  });
  byId('routes-sum').textContent = routed === 0 ? 'silence' : plural(routed, 'sample');
  show(byId('routes'), sinks.length ? sinks : h('p', { class: 'empty' }, 'Not read yet.'));
}

export function renderSlots(state) {
  const names = { orb: 'Orb', primary: 'Primary', secondary: 'Secondary' };
  show(byId('slots'), Object.entries(names).map(([port, name]) => {
    const slots = state.slots[port];
    const marks = slots.map((slot) => [slot.slot, slot.slot, slot.from.port]);
    return h('div', { class: 'sink' },
      h('h3', null, name, h('span', { class: 'num sum' }, `${slots.length}`)),
      strip(marks, `${slots.length} of ${SLOTS} slots of ${name} are in use`));
  }));
}

export function renderClocks(state) {
  const { sources, active, autoSelectOff } = state.clocks;
  byId('clocks-sum').textContent = (active ? `${active} chosen` : '') + (autoSelectOff ? ', chosen by hand' : '');
  const flag = (value, yes, no) => h('td', { class: value ? 'good' : 'quiet' }, value ? yes : no);
  show(byId('clocks'), head('(Chosen)', 'Source', 'Enabled', 'State', 'Measure'), h('tbody', null, sources.map((source) =>
    h('tr', { class: source.selected ? 'selected' : undefined },
      h('td', { class: 'pick' }, source.selected && icon('yes'), source.selected && h('span', { class: 'hidden' }, 'chosen')),
      h('td', null, h('b', null, source.id === 0 ? 'Internal' : source.name || 'unnamed'), h('span', { class: 'num quiet' }, ` ${source.id}`)),
      flag(source.enabled, 'yes', 'no'),
      flag(source.stable, source.lock || 'stable', source.lock || 'unstable'),
      h('td', { class: 'num right' }, source.measure)))));
}

export function renderDevices(state) {
  byId('devices-sum').textContent = plural(state.devices.length, 'device');
  const link = (entry) => h('td', { class: entry.online ? 'good' : 'quiet' },
    entry.online ? [icon('yes'), ' ', h('span', { class: 'num' }, entry.address)] : 'offline');
  show(byId('devices'), head('Device', 'Type', 'Primary', 'Secondary', 'Owner', 'Rate'), h('tbody', null,
    !state.devices.length && none(6, 'No devices.'), state.devices.map((device) => h('tr', null,
      h('td', null, deviceIcon(device.type), ' ', h('b', { class: 'hid' }, device.hid)), h('td', null, device.type),
      link(device.primary), link(device.secondary),
      h('td', { class: 'hid' }, device.local ? 'on the link' : device.owner === device.hid ? 'itself' : device.owner),
      h('td', { class: 'num' }, device.rate)))));
}

export function renderFaults(state, now) {
  const recent = state.faults.filter((entry) => now - entry.time < RECENT);
  byId('faults-sum').textContent = recent.length ? `${recent.length} in the last 15 minutes` : 'none in the last 15 minutes';
  document.querySelector('.faults').classList.toggle('has', recent.length > 0);
  show(byId('faults'), recent.length ? recent.slice(-100).reverse().map((entry) => h('li', null, icon('warn'),
    h('time', { class: 'num', datetime: new Date(entry.time).toISOString(), title: `module's clock: ${entry.stamp}` }, clockTime(entry.time)),
    h('span', { class: 'feature' }, entry.feature), h('span', { class: 'text' }, entry.text))) :
    h('li', { class: 'empty' }, 'Nothing was reported as a fault.'));
}

export function renderFacts(state) {
  const fact = (name, value) => value && h('div', null, h('dt', null, name), h('dd', { class: 'num' }, value));
  show(byId('facts'), fact('Module', state.module.hid), fact('Version', state.module.version), fact('Shell', state.watch.shell),
    fact('Clock', state.clocks.active), state.watch.restarts > 0 && fact('Restarts', String(state.watch.restarts)));
}

const CONTACT = { live: ['yes', 'Live'], silent: ['warn', 'Does not answer'], away: ['no', 'Away'], connecting: ['underway', 'Connecting'] };

/// What an engineer must know before believing the picture.
export function renderContact(state, connected, now) {
  const { contact, since, taken } = state.watch;
  const [symbol, word] = connected ? CONTACT[contact] : ['no', 'OrbWatch is gone'];
  document.body.dataset.contact = connected ? contact : 'lost';
  show(byId('contact'), icon(symbol), h('b', null, word));
  const age = taken ? duration(now - taken) : '';
  byId('age').textContent = taken ? `picture ${age} old` : 'no picture yet';
  byId('notes').textContent = [state.watch.sparing && 'Pictures come more seldom now, so that listings do not fill the module\'s log.',
    state.watch.longListings.length && `While ${state.watch.longListings.join(', ')} is read, which is long, lines of the log are missed.`].filter(Boolean).join(' ');
  const notices = [];
  if (!connected) notices.push(`OrbWatch does not answer this page. What you see is ${age || 'nothing yet'}${taken ? ' old' : ''}.`);
  else if (contact === 'away') notices.push(`The module is away since ${clockTime(since)}.${taken ? ` What you see is from ${clockTime(taken)}.` : ''}`);
  else if (contact === 'silent') notices.push(`The module's shell is connected and has not answered since ${clockTime(since)}.`);
  if (!state.watch.information) notices.push('The debug feature Information of the module is off (db 3): devices, patches and most of the log cannot be read.');
  show(byId('notices'), notices.map((text) => h('p', { class: 'notice' }, icon('warn'), text)));
}
