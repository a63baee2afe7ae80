// The running log. It follows the end until the user scrolls up.

import { byId, h } from './dom.js';

const MOST = 1000;
const entries = [];
const features = new Set();
let missed = 0;

const filter = () => byId('log-filter').value.trim().toLowerCase();
const feature = () => byId('log-feature').value;
const isFollowing = () => byId('log-follow').getAttribute('aria-pressed') === 'true';
const fits = (entry) => (!feature() || entry.feature === feature()) && entry.text.toLowerCase().includes(filter());

function row(entry) {
  const kind = ['Fault', 'Assert', 'Invalid'].includes(entry.feature) ? 'fault' : 'plain';
  return h('li', { class: kind, 'data-number': entry.number }, h('time', { class: 'num' }, entry.stamp.slice(9) || '–'),
    h('span', { class: 'feature' }, entry.feature), h('span', { class: 'text' }, entry.text));
}

function sum() {
  const shown = byId('log').childElementCount;
  byId('log-sum').textContent = `${shown} of ${entries.length} lines` + (missed ? `, ${missed} missed` : '');
}

function toEnd() {
  if (isFollowing()) byId('log-scroll').scrollTop = byId('log-scroll').scrollHeight;
}

export function renderLog() {
  byId('log').replaceChildren(...entries.filter(fits).map(row));
  sum();
  toEnd();
}

export function addLines({ lines, missed: lost }) {
  missed += lost;
  const list = byId('log');
  for (const entry of lines) {
    if (entries.length && entry.number <= entries[entries.length - 1].number) continue;
    entries.push(entry);
    if (!features.has(entry.feature)) {
      features.add(entry.feature);
      byId('log-feature').append(h('option', { value: entry.feature }, entry.feature));
    }
    if (fits(entry)) list.append(row(entry));
  }
  while (entries.length > MOST) {
    const gone = entries.shift();
    if (list.firstElementChild?.dataset.number === String(gone.number)) list.firstElementChild.remove();
  }
  sum();
  toEnd();
}

export function forget() {
  entries.length = 0;
  missed = 0;
  byId('log').replaceChildren();
}

export function setUpLog() {
  byId('log-filter').addEventListener('input', renderLog);
  byId('log-feature').addEventListener('change', renderLog);
  const follow = byId('log-follow');
  const set = (on) => follow.setAttribute('aria-pressed', String(on));
  follow.addEventListener('click', () => { set(!isFollowing()); toEnd(); });
  byId('log-scroll').addEventListener('wheel', (event) => { if (event.deltaY < 0) set(false); }, { passive: true });
  byId('log-scroll').addEventListener('keydown', (event) => { if (['ArrowUp', 'PageUp', 'Home'].includes(event.key)) set(false); });
}
