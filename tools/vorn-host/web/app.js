// The workbench page: asks the server for the session first (the token for changes, whether changes
// are allowed), then fills the sections and follows the server's events. Nothing here needs a
// reload: lost events reconnect, failed reads are tried again.
import { get, setToken, retrying, events, every } from './api.js';
import { $ } from './dom.js';
import * as status from './status.js';
import * as live from './live.js';
import * as format from './format.js';
import * as log from './log.js';
import * as device from './device.js';

const Tabs = ['live', 'format', 'log', 'device'];
let current = 'live';

function showTab(name) {
  current = Tabs.includes(name) ? name : 'live';
  for (const tab of Tabs) {
    $(tab).hidden = tab !== current;
    $(`tab-${tab}`).setAttribute('aria-selected', String(tab === current));
  }
  if (current === 'device') device.shown();
  history.replaceState(null, '', `${location.pathname}${location.search}#${current}`);
}

async function main() {
  live.init();
  format.init();
  log.init();
  device.init(() => current === 'device');
  for (const tab of Tabs) $(`tab-${tab}`).addEventListener('click', () => showTab(tab));
  showTab(location.hash.slice(1));

  const session = await retrying(() => get('/api/session'), () => status.lost(true));
  setToken(session.token);
  document.body.classList.toggle('may-change', !session.readOnly);
  $('read-only').hidden = !session.readOnly;
  $('version').textContent = session.version ? `vorn-host ${session.version}` : '';

  const first = await retrying(() => status.refresh());
  log.load();
  let cut = false;
  const onResult = (result) => {
    live.onResult(result);
    status.counted(result);
    if (!result.problem) format.onResult();
  };
  events({ result: onResult, status: (s) => status.show(s), log: log.onEntry }, (up) => {
    if (!up) {
      cut = true;
      status.refresh().catch(() => {});
    } else if (cut) {
      // Back after a break: what happened meanwhile is read afresh.
      cut = false;
      status.refresh().then((s) => live.start(s), () => {});
      log.load();
    }
  });
  live.start(first);
  format.start();
  every(10000, () => status.refresh());
}

main();
