// The output format: a description edited and checked as it is typed, the newest result formatted
// in it byte by byte beside the byte map, and the PLC decoders of the answer.
import { get, post, retrying } from './api.js';
import { $, el, say, debounce } from './dom.js';
import { locate, lineColumn } from './pointer.js';

const Stored = 'workbench.description';
const FirstBytes = 4096; // bytes shown before "show all", so a picture in the answer stays quick

let examples = [];
let checked = 0; // the number of the newest check, so that a late answer is dropped
let answer = null; // the newest format answer
let entries = []; // its byte map
let cover = []; // for each byte, the map entry that says most precisely who wrote it
let byteNodes = [];
let showAll = false;
let marked = [];
let awaitingResult = false; // the last format found no result yet: the next one is formatted
const capacities = new Map(); // list name -> the capacity typed

export function init() {
  $('description').addEventListener('input', () => {
    localStorage.setItem(Stored, $('description').value);
    $('example').value = '';
    say($('validity'), 'checking…');
    check();
  });
  $('example').addEventListener('change', () => {
    const chosen = examples.find((x) => x.name === $('example').value);
    if (!chosen) return;
    $('description').value = chosen.text;
    localStorage.removeItem(Stored);
    $('decoder-name').value = chosen.name.replace(/\.json$/, '').replace(/[^A-Za-z0-9_]/g, '_');
    checkNow();
  });
  $('order').addEventListener('change', formatNow);
  $('format-run').addEventListener('click', formatNow);
  $('hex').addEventListener('mouseover', (event) => {
    const byte = event.target.closest('.byte');
    if (byte) mark(cover[Number(byte.dataset.offset)]);
  });
  $('hex').addEventListener('mouseleave', () => mark(undefined));
  $('map-body').addEventListener('mouseover', (event) => {
    const row = event.target.closest('tr.map-row');
    if (row) mark(Number(row.dataset.index));
  });
  $('map-body').addEventListener('mouseleave', () => mark(undefined));
  $('decoder-st').addEventListener('click', () => decoder('st'));
  $('decoder-c').addEventListener('click', () => decoder('c'));
}

export async function start() {
  examples = await retrying(() => get('/api/examples'), (e) => say($('example-message'), e.message, true));
  say($('example-message'), '');
  if (!Array.isArray(examples)) examples = [];
  $('example').replaceChildren(
    el('option', { value: '' }, examples.length ? 'start from an example…' : 'no examples'),
    ...examples.map((x) => el('option', { value: x.name }, x.name)));
  const stored = localStorage.getItem(Stored);
  if (stored !== null) {
    $('description').value = stored;
    checkNow();
  } else if (examples.length) {
    $('example').value = examples[0].name;
    $('example').dispatchEvent(new Event('change'));
  }
}

// A new result: formatted when the last try had none to format.
export function onResult() {
  if (awaitingResult) {
    awaitingResult = false;
    formatNow();
  }
}

const check = debounce(checkNow, 400);

async function checkNow() {
  const number = ++checked;
  const description = $('description').value;
  let verdict;
  try {
    verdict = await post('/api/validate', { description });
  } catch (e) {
    if (number === checked) say($('validity'), e.message, true);
    return;
  }
  if (number !== checked) return;
  showProblems(verdict.problems || []);
  say($('validity'), verdict.valid ? 'valid' : `${(verdict.problems || []).length || 'some'} problem${(verdict.problems || []).length === 1 ? '' : 's'}`, !verdict.valid);
  $('validity').classList.toggle('ok', Boolean(verdict.valid));
  // The answer on show is that of the last description that was valid.
  for (const part of [$('hex'), $('map-body')]) part.classList.toggle('stale', !verdict.valid);
  if (verdict.valid) formatNow();
}

function showProblems(problems) {
  $('problems').replaceChildren(
    ...problems.map((p) =>
      el('li', { class: 'problem', title: 'show this place in the description', onclick: () => showPlace(p) },
        el('code', { class: 'path' }, p.path || '(the whole text)'), ' ', el('span', {}, p.message || ''))));
}

// Selects the part of the description a problem is about and scrolls it into view.
function showPlace(problem) {
  const box = $('description');
  const text = box.value;
  const place = lineColumn(text, problem.message) || locate(text, problem.path && problem.path !== '/' ? problem.path : '');
  box.focus();
  box.setSelectionRange(place.start, place.end);
  const line = text.slice(0, place.start).split('\n').length - 1;
  const height = parseFloat(getComputedStyle(box).lineHeight) || 16;
  box.scrollTop = Math.max(0, line * height - box.clientHeight / 3);
}

async function formatNow() {
  const message = $('format-message');
  say(message, 'formatting…');
  try {
    answer = await post('/api/format', { description: $('description').value, order: $('order').value });
  } catch (e) {
    awaitingResult = e.status === 409;
    if (e.status === 409) say(message, `${e.message}: it is formatted as soon as the camera publishes one`, true);
    else say(message, e.message, true);
    if (e.status === 422 && Array.isArray(e.body.problems)) showProblems(e.body.problems);
    return;
  }
  say(message, '');
  awaitingResult = false;
  showAll = false;
  showAnswer();
}

function bytesOf(hex) {
  const clean = String(hex || '').replace(/[^0-9a-fA-F]/g, '');
  const out = [];
  for (let i = 0; i + 1 < clean.length; i += 2) out.push(clean.slice(i, i + 2).toLowerCase());
  return out;
}

const visible = (byte) => {
  const code = parseInt(byte, 16);
  return code >= 0x20 && code < 0x7f ? String.fromCharCode(code) : '·';
};

function showAnswer() {
  const bytes = bytesOf(answer.hex);
  entries = Array.isArray(answer.map) ? answer.map : [];
  // The smallest entry over each byte: a list's entry spans all its records, their fields say more.
  cover = new Array(bytes.length);
  entries.forEach((entry, index) => {
    const end = Math.min(bytes.length, entry.offset + entry.length);
    for (let o = Math.max(0, entry.offset); o < end; ++o)
      if (cover[o] === undefined || entries[cover[o]].length > entry.length) cover[o] = index;
  });
  const notes = [];
  if (answer.served === false) notes.push('the plug-in did not serve it');
  // The map is traced apart from the plug-in's own answer; say so when the two differ.
  if (answer.agrees === false) notes.push('the byte map differs from the bytes the plug-in wrote');
  $('format-summary').textContent = `result ${answer.id}: ${answer.size !== undefined ? answer.size : bytes.length} bytes for a ${$('order').value}-endian bus`;
  say($('format-message'), notes.join('; '), notes.length > 0);
  showHex(bytes);
  showMap();
  showLists(Array.isArray(answer.lists) ? answer.lists : []);
}

function showHex(bytes) {
  const shown = showAll ? bytes.length : Math.min(bytes.length, FirstBytes);
  const rows = [];
  byteNodes = [];
  for (let row = 0; row < shown; row += 16) {
    const spans = [];
    let text = '';
    for (let o = row; o < Math.min(row + 16, shown); ++o) {
      const node = el('span', { class: `byte${cover[o] === undefined ? ' unmapped' : ''}`, dataset: { offset: String(o) } }, bytes[o]);
      byteNodes.push(node);
      spans.push(node);
      text += visible(bytes[o]);
    }
    rows.push(el('div', { class: 'hex-row' },
      el('span', { class: 'hex-offset' }, row.toString(16).padStart(6, '0')),
      el('span', { class: 'hex-bytes' }, spans),
      el('span', { class: 'hex-text' }, text)));
  }
  if (shown < bytes.length)
    rows.push(el('button', { type: 'button', onclick: () => { showAll = true; showHex(bytes); } },
      `show all ${bytes.length} bytes (${bytes.length - shown} more)`));
  if (bytes.length === 0) rows.push(el('p', { class: 'dim' }, 'the answer is empty'));
  $('hex').replaceChildren(...rows);
  marked = [];
}

const described = (entry) => {
  const parts = [];
  if (entry.scale !== undefined) parts.push(`×${entry.scale}`);
  if (entry.shift !== undefined) parts.push(`${entry.shift < 0 ? '' : '+'}${entry.shift}`);
  return parts.join(' ');
};

function showMap() {
  $('map-body').replaceChildren(
    ...entries.map((entry, index) =>
      el('tr', { class: `map-row kind-${entry.kind}`, dataset: { offset: String(entry.offset), length: String(entry.length), index: String(index) } },
        el('td', { class: 'number' }, entry.offset),
        el('td', { class: 'number' }, entry.length),
        el('td', {}, Array.isArray(entry.element) ? entry.element.join(' › ') : String(entry.element || '')),
        el('td', {}, entry.id || ''),
        el('td', {}, entry.kind === 'value' || !entry.kind ? entry.type : `${entry.kind} ${entry.type || ''}`),
        el('td', {}, [entry.encoding, entry.order].filter(Boolean).join(', ')),
        el('td', {}, entry.value !== undefined ? String(entry.value) : ''),
        el('td', {}, [entry.written !== undefined ? String(entry.written) : '', described(entry)].filter(Boolean).join(' ')),
        el('td', { class: 'note' }, entry.note || ''))));
}

// Marks a map entry's row and its bytes (none for undefined).
function mark(index) {
  for (const node of marked) node.classList.remove('marked');
  marked = [];
  const entry = entries[index];
  if (!entry) return;
  const row = $('map-body').querySelector(`tr.map-row[data-index="${index}"]`);
  if (row) marked.push(row);
  const end = Math.min(byteNodes.length, entry.offset + entry.length);
  for (let o = Math.max(0, entry.offset); o < end; ++o) marked.push(byteNodes[o]);
  for (const node of marked) node.classList.add('marked');
}

function showLists(lists) {
  $('lists').replaceChildren(
    ...lists.map((name) => {
      const input = el('input', { type: 'number', min: 1, max: 65535, value: capacities.get(name) || 4, dataset: { list: name } });
      input.addEventListener('input', () => capacities.set(name, input.value));
      return el('label', { class: 'capacity' }, `${name}: at most `, input, ' records');
    }));
  $('lists-none').hidden = lists.length !== 0;
}

async function decoder(lang) {
  const message = $('decoder-message');
  const records = {};
  const missing = [];
  for (const input of $('lists').querySelectorAll('input[data-list]')) {
    const capacity = Number(input.value);
    if (input.value === '' || !Number.isInteger(capacity) || capacity < 1 || capacity > 65535) missing.push(input.dataset.list);
    else records[input.dataset.list] = capacity;
  }
  if (missing.length) {
    say(message, `give the most records a PLC reserves for ${missing.join(', ')}: a whole number from 1 to 65535`, true);
    return;
  }
  const body = { description: $('description').value, lang, order: $('order').value, records };
  if ($('decoder-name').value.trim()) body.name = $('decoder-name').value.trim();
  say(message, 'writing the decoder…');
  try {
    const made = await post('/api/decoder', body);
    const url = URL.createObjectURL(new Blob([made.text], { type: 'text/plain' }));
    const link = el('a', { href: url, download: made.file || (lang === 'c' ? 'decoder.h' : 'decoder.st') });
    document.body.append(link);
    link.click();
    link.remove();
    setTimeout(() => URL.revokeObjectURL(url), 10000);
    const names = [made.type && `type ${made.type}`, typeof made.decoder === 'string' && `decoder ${made.decoder}`].filter(Boolean);
    say(message, `saved ${made.file}${names.length ? ` (${names.join(', ')})` : ''}`);
  } catch (e) {
    say(message, e.message, true);
  }
}
