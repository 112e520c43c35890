// The status bar: what cannot be reached, in plain words, and how the results come in.
import { get } from './api.js';
import { $, el, num } from './dom.js';

const Parts = [
  ['camera', 'The camera does not answer'],
  ['plugin', 'The plug-in is not working'],
  ['redis', 'Redis cannot be reached'],
  ['bus', 'The system bus cannot be reached'],
];

let status = null;
let serverLost = false;

export function show(next) {
  // A status event carries the parts only; the live figures stay those last read.
  if (next) status = next.live || !status ? next : { ...next, live: status.live };
  const bar = $('status');
  const problems = [];
  if (serverLost) problems.push('The workbench server does not answer; the page keeps trying and picks up where it was.');
  for (const [part, words] of Parts) {
    const state = status && status[part];
    if (state && state.ok === false) problems.push(`${words}${state.detail ? `: ${state.detail}` : ''}.`);
  }
  const live = status && status.live;
  const figures = live
    ? `${live.results || 0} results${live.skipped ? `, ${live.skipped} skipped` : ''}${live.fps ? `, ${num(live.fps, 1)} per second` : ''}${live.id !== undefined && live.id !== null ? `, newest ${live.id}` : ''}`
    : '';
  bar.classList.toggle('trouble', problems.length > 0);
  bar.classList.toggle('ok', problems.length === 0 && status !== null);
  bar.replaceChildren(
    ...(problems.length
      ? problems.map((p) => el('span', { class: 'status-problem' }, p))
      : [el('span', {}, status ? 'Camera, plug-in, Redis and bus all reachable.' : 'Connecting…')]),
    figures ? el('span', { class: 'status-live' }, figures) : null);
}

// The live figures as each result brings them, between two status reads.
export function counted(result) {
  if (!status || typeof result.results !== 'number') return;
  status = { ...status, live: { results: result.results, skipped: result.skipped, fps: result.fps, id: result.id } };
  show();
}

export function lost(isLost) {
  if (serverLost === isLost) return;
  serverLost = isLost;
  show();
}

// Reads the status afresh; a failure marks the server lost until an answer comes again.
export async function refresh() {
  try {
    const next = await get('/api/status');
    serverLost = false;
    show(next);
    return next;
  } catch (e) {
    lost(e.status === 0 || e.status === undefined);
    throw e;
  }
}
