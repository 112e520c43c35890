// The server's API: every request carries the token the server asks for, an error answer becomes an
// ApiError with the server's own words, and the live events reconnect by themselves.

const pageToken = new URLSearchParams(location.search).get('token');
let sessionToken = pageToken;

// The token of /api/session, sent with every change (and with every request when the page's URL
// carried one, as a listener off the loopback wants it).
export function setToken(token) {
  if (token) sessionToken = token;
}

export class ApiError extends Error {
  constructor(message, status, body) {
    super(message);
    this.status = status;
    this.body = body || {};
  }
}

// A URL of the API with the page's token added as ?token=, for what cannot send a header (an <img>,
// the event stream).
export function withToken(url) {
  if (!pageToken) return url;
  const u = new URL(url, location.href);
  u.searchParams.set('token', pageToken);
  return u.pathname + u.search;
}

async function request(method, path, body, as = 'json') {
  const headers = {};
  if (sessionToken && (method !== 'GET' || pageToken)) headers['X-Workbench-Token'] = sessionToken;
  const init = { method, headers, cache: 'no-store' };
  if (body !== undefined) {
    headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  let response;
  try {
    response = await fetch(path, init);
  } catch (e) {
    throw new ApiError('the workbench server does not answer (is vorn-host serve still running?)', 0);
  }
  if (!response.ok) {
    let answer = {};
    try {
      answer = await response.json();
    } catch (e) {
      answer = {};
    }
    let words = `${response.status} ${response.statusText}`;
    if (typeof answer.error === 'string') words = answer.error;
    else if (typeof answer.status === 'string') words = `the plug-in answered ${answer.status}`;
    throw new ApiError(words, response.status, answer);
  }
  if (as === 'buffer') return response.arrayBuffer();
  return response.json();
}

export const get = (path) => request('GET', path);
export const getBytes = (path) => request('GET', path, undefined, 'buffer');
export const post = (path, body) => request('POST', path, body === undefined ? {} : body);

// Calls fn until it succeeds, waiting longer after each failure (up to 10 s); onError hears each
// failure so that the page can say what it waits for.
export async function retrying(fn, onError) {
  for (let wait = 500; ; wait = Math.min(wait * 2, 10000)) {
    try {
      return await fn();
    } catch (e) {
      if (onError) onError(e);
      await new Promise((resolve) => setTimeout(resolve, wait));
    }
  }
}

// Calls fn every `period` ms while wanted() holds, never two at once; a failure only waits for the
// next turn.
export function every(period, fn, wanted = () => true) {
  let busy = false;
  const tick = async () => {
    if (busy || !wanted()) return;
    busy = true;
    try {
      await fn();
    } catch (e) {
      // the next turn tries again; fn shows its own errors
    } finally {
      busy = false;
    }
  };
  setInterval(tick, period);
  return tick;
}

// The server's events (result, status, log), delivered to handlers[name](data). The stream
// reconnects by itself; when the server refused it outright, a new one is opened after a while.
// onState(true|false) tells whether the stream is up.
export function events(handlers, onState) {
  let source = null;
  let wait = 1000;
  const open = () => {
    source = new EventSource(withToken('/api/events'));
    source.addEventListener('open', () => {
      wait = 1000;
      onState(true);
    });
    source.addEventListener('error', () => {
      onState(false);
      if (source.readyState === EventSource.CLOSED) {
        setTimeout(open, wait);
        wait = Math.min(wait * 2, 10000);
      }
    });
    for (const [name, handle] of Object.entries(handlers)) {
      source.addEventListener(name, (event) => {
        let data;
        try {
          data = JSON.parse(event.data);
        } catch (e) {
          return; // a damaged event is dropped; the next one carries the newest state again
        }
        handle(data);
      });
    }
  };
  open();
}

// A plug-in reply in a few words: its status, else its reply code.
export function replyText(reply, done) {
  if (reply && reply.status !== undefined && reply.status !== '') return `${done}: ${reply.status}`;
  const code = reply && (reply.reply_code !== undefined ? reply.reply_code : reply.replyCode);
  if (code !== undefined) return `${done} (reply code ${code})`;
  return done;
}
