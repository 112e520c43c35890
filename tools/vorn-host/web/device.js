// The device: its identity and network, the applications with a switch, the I/O with outputs to
// set (each after a confirmation), and the decoding statistics, fresh every few seconds.
import { get, post, every, replyText } from './api.js';
import { $, el, say, num } from './dom.js';

const StatsPeriod = 3000;
let visible = () => false;
let loaded = false;
let stale = false; // a part could not be read: the next turn reads everything again

export function init(isShown) {
  visible = isShown;
  $('device-refresh').addEventListener('click', () => loadAll());
  $('app-switch').addEventListener('click', switchApp);
  $('io-body').addEventListener('click', (event) => {
    const button = event.target.closest('button[data-io]');
    if (button) setIo(Number(button.dataset.io), Number(button.dataset.state));
  });
  every(StatsPeriod, () => (stale ? loadAll() : loadStats()), () => visible() && loaded);
}

// Called when the device section is shown: everything is read the first time, afterwards the
// statistics keep themselves fresh.
export function shown() {
  if (!loaded) {
    loaded = true;
    loadAll();
  }
}

function loadAll() {
  stale = false;
  return Promise.all([loadIdentity(), loadApps(), loadIo(), loadStats()]);
}

const label = (key) => key.replace(/_/g, ' ');

async function loadIdentity() {
  const message = $('device-message');
  try {
    const answer = await get('/api/device');
    const items = answer.items || {};
    const errors = answer.errors || {};
    $('device-items').replaceChildren(
      ...Object.entries(items).map(([key, value]) =>
        el('tr', {},
          el('th', { scope: 'row' }, label(key)),
          value === null
            ? el('td', { class: 'error' }, errors[key] || 'could not be read')
            : el('td', {}, typeof value === 'object' ? JSON.stringify(value) : String(value)))));
    say(message, '');
  } catch (e) {
    stale = true;
    say(message, e.message, true);
  }
}

async function loadApps() {
  const message = $('apps-message');
  try {
    const answer = await get('/api/apps');
    const list = Array.isArray(answer.applications) ? answer.applications : [];
    $('apps-list').replaceChildren(
      ...list.map((index) =>
        el('li', { class: index === answer.active ? 'active' : '' },
          `Application ${index}`, index === answer.active ? el('span', { class: 'badge' }, 'active') : null)));
    if (list.length === 0) $('apps-list').append(el('li', { class: 'dim' }, 'no applications'));
    const choice = $('app-choice');
    const before = choice.value;
    choice.replaceChildren(...list.map((index) => el('option', { value: String(index) }, `Application ${index}`)));
    $('app-switch').disabled = list.length === 0;
    choice.value = before && list.map(String).includes(before) ? before : String(answer.active);
    if (message.classList.contains('error')) say(message, '');
    $('apps-summary').textContent = `${answer.count !== undefined ? answer.count : list.length} applications, active: ${answer.active !== undefined ? answer.active : '–'}`;
  } catch (e) {
    stale = true;
    say(message, e.message, true);
  }
}

async function switchApp() {
  const message = $('apps-message');
  const index = Number($('app-choice').value);
  say(message, `switching to application ${index}…`);
  const outcome = await post('/api/apps', { index }).then(
    (reply) => [replyText(reply, `switched to application ${index}`), false], (e) => [e.message, true]);
  await loadApps();
  say(message, ...outcome);
}

async function loadIo() {
  const message = $('io-message');
  try {
    const answer = await get('/api/io');
    $('io-body').replaceChildren(
      ...(answer.ios || []).map((io) =>
        el('tr', {},
          el('th', { scope: 'row' }, `I/O ${io.io}`),
          io.error !== undefined
            ? el('td', { class: 'error' }, io.error)
            : el('td', {}, el('span', { class: `io-state ${io.state ? 'on' : 'off'}` }, io.state ? '1 (on)' : '0 (off)')),
          el('td', {},
            el('button', { type: 'button', class: 'change', dataset: { io: String(io.io), state: '1' } }, 'Set to 1'),
            ' ',
            el('button', { type: 'button', class: 'change', dataset: { io: String(io.io), state: '0' } }, 'Set to 0')))));
    if (message.classList.contains('error')) say(message, '');
  } catch (e) {
    stale = true;
    say(message, e.message, true);
  }
}

async function setIo(io, state) {
  const message = $('io-message');
  if (!window.confirm(`Set I/O ${io} to ${state}? Whatever is wired to this output will act on it.`)) {
    say(message, `I/O ${io} left as it was`);
    return;
  }
  say(message, `setting I/O ${io} to ${state}…`);
  const outcome = await post('/api/io', { io, state }).then(
    (reply) => [replyText(reply, `I/O ${io} set to ${state}`), false], (e) => [e.message, true]);
  await loadIo();
  say(message, ...outcome);
}

async function loadStats() {
  const message = $('stats-message');
  try {
    const answer = await get('/api/stats');
    $('stats-body').replaceChildren(
      ...Object.entries(answer).map(([key, value]) =>
        el('tr', {}, el('th', { scope: 'row' }, label(key.replace(/^number_of_/, ''))), value === null ? el('td', { class: 'number error' }, 'could not be read') : el('td', { class: 'number' }, num(value, 0)))));
    $('stats-time').textContent = `as of ${new Date().toLocaleTimeString()}`;
    say(message, '');
  } catch (e) {
    say(message, e.message, true);
  }
}
