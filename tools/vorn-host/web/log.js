// The log: the newest entries, then each new one as it is written, filtered by category, source and
// text, coloured as kslog colours them; and the mask that says which categories the loggers write.
import { get, post, retrying } from './api.js';
import { $, el, say } from './dom.js';

// The logger's categories and their bits (src/logger/LogEntryFormat.h).
export const Categories = [
  ['DEBUG', 0x01], ['DIAG', 0x02], ['TRACE', 0x04], ['INFO', 0x08],
  ['WARN', 0x10], ['ERROR', 0x20], ['FATAL', 0x40], ['EMERG', 0x80],
];
const Kept = 2000; // entries held; older ones drop off the top

let entries = [];
let loading = null; // entries that came while the tail was being read
let paused = false;
let held = []; // entries that came while paused: the view, filters included, stays as it was

// kslog's colours: errors red, warnings yellow, information green, the rest dim.
export function colourOf(category) {
  if (category === 'ERROR' || category === 'FATAL' || category === 'EMERG') return 'red';
  if (category === 'WARN') return 'yellow';
  if (category === 'INFO') return 'green';
  return 'dim';
}

const key = (e) => `${e.T}|${e.P}|${e.C}|${e.S}|${e.M}`;

function filters() {
  return {
    category: $('log-level').value,
    source: $('log-source').value.trim().toLowerCase(),
    text: $('log-text').value.toLowerCase(),
  };
}

function matches(entry, f) {
  if (f.category && entry.C !== f.category) return false;
  if (f.source && !String(entry.S || '').toLowerCase().includes(f.source)) return false;
  if (f.text && !String(entry.M || '').toLowerCase().includes(f.text)) return false;
  return true;
}

function row(entry) {
  const category = String(entry.C || '?');
  return el('div', { class: `log-entry ${colourOf(category)}` },
    el('span', { class: 'log-time' }, entry.time || entry.T || '?'),
    el('span', { class: 'log-pid' }, entry.P !== undefined ? entry.P : '?'),
    el('span', { class: 'log-category' }, category),
    el('span', { class: 'log-source' }, entry.S || '?'),
    el('span', { class: 'log-message' }, entry.M !== undefined ? entry.M : ''));
}

function atBottom(view) {
  return view.scrollHeight - view.scrollTop - view.clientHeight < 24;
}

function render() {
  const view = $('log-view');
  const f = filters();
  const shown = entries.filter((e) => matches(e, f));
  view.replaceChildren(...shown.map(row));
  if (shown.length === 0) view.append(el('p', { class: 'dim' }, entries.length ? 'no entry matches the filters' : 'no entries yet'));
  $('log-count').textContent = `${shown.length} of ${entries.length} entries`;
  view.scrollTop = view.scrollHeight;
}

function append(list) {
  if (paused) {
    held.push(...list);
    $('log-paused').textContent = `${held.length} new while paused`;
    return;
  }
  const view = $('log-view');
  const follow = atBottom(view);
  entries.push(...list);
  const dropped = Math.max(0, entries.length - Kept);
  entries.splice(0, dropped);
  const f = filters();
  const fresh = list.filter((e) => matches(e, f));
  if (dropped || view.querySelector('p.dim')) {
    render();
    return;
  }
  view.append(...fresh.map(row));
  $('log-count').textContent = `${view.querySelectorAll('.log-entry').length} of ${entries.length} entries`;
  if (follow) view.scrollTop = view.scrollHeight;
}

export function init() {
  $('log-level').replaceChildren(
    el('option', { value: '' }, 'every category'),
    ...Categories.map(([name]) => el('option', { value: name }, name)));
  for (const id of ['log-source', 'log-text']) $(id).addEventListener('input', render);
  $('log-level').addEventListener('change', render);
  $('log-pause').addEventListener('click', () => {
    paused = !paused;
    $('log-pause').textContent = paused ? 'Resume' : 'Pause';
    $('log-pause').setAttribute('aria-pressed', String(paused));
    $('log-paused').textContent = paused ? 'paused' : '';
    if (!paused) {
      const later = held;
      held = [];
      if (later.length) append(later);
    }
  });
  $('log-mask-bits').replaceChildren(
    ...Categories.map(([name, bit]) => {
      const box = el('input', { type: 'checkbox', checked: true, dataset: { bit: String(bit) } });
      box.addEventListener('change', showMask);
      return el('label', { class: `mask-bit ${colourOf(name)}` }, box, ` ${name} `, el('small', {}, `0x${bit.toString(16).padStart(2, '0')}`));
    }));
  showMask();
  $('mask-apply').addEventListener('click', applyMask);
}

function mask() {
  let m = 0;
  for (const box of $('log-mask-bits').querySelectorAll('input[data-bit]')) if (box.checked) m |= Number(box.dataset.bit);
  return m;
}

function showMask() {
  $('mask-value').textContent = `0x${mask().toString(16).padStart(2, '0')}`;
}

async function applyMask() {
  const message = $('mask-message');
  const source = $('mask-source').value.trim() || 'all';
  say(message, 'sending…');
  try {
    const answer = await post('/api/log/mask', { mask: mask(), source });
    const n = answer.receivers;
    say(message, `mask 0x${mask().toString(16).padStart(2, '0')} sent to ${source}: ${n} running logger${n === 1 ? '' : 's'} received it`);
  } catch (e) {
    say(message, e.message, true);
  }
}

// Reads the newest entries afresh (at the start and after the events were cut off); entries that
// come meanwhile follow them, each once.
export async function load() {
  loading = [];
  const answer = await retrying(() => get('/api/log?n=200'), (e) => say($('log-message'), e.message, true));
  say($('log-message'), '');
  entries = Array.isArray(answer.entries) ? answer.entries : [];
  held = [];
  const known = new Set(entries.map(key));
  const later = loading.filter((e) => !known.has(key(e)));
  loading = null;
  render();
  if (later.length) append(later);
}

export function onEntry(entry) {
  if (loading) loading.push(entry);
  else append([entry]);
}
