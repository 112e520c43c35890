// The live view: the newest result's picture with its ROIs, its distance image in false colour,
// its models and ROIs, the frame rate; pause and trigger.
import { get, getBytes, post, withToken, replyText } from './api.js';
import { $, el, say, num } from './dom.js';
import { parseChunk, showValue, draw, drawScale } from './distance.js';
import { readModels, stateClass, outline } from './roi.js';

let paused = false;
let latest = null; // the newest result, shown or held while paused
let models = [];
let selected = null; // {model: key, roi: id}
let distance = null; // the parsed distance image on show
let distanceWanted = null; // the URL to fetch next, when a fetch is still running
let distanceBusy = false;
const arrivals = []; // times of the last results, for a frame rate when the server gives none

const OverlayScale = 4; // overlay pixels per picture pixel, for thin outlines

export function init() {
  drawScale($('scale'));
  $('pause').addEventListener('click', () => {
    paused = !paused;
    $('pause').textContent = paused ? 'Resume' : 'Pause';
    $('pause').setAttribute('aria-pressed', String(paused));
    $('live-state').textContent = paused ? 'paused' : '';
    if (!paused && latest) apply(latest);
  });
  $('trigger').addEventListener('click', trigger);
  $('picture').addEventListener('load', () => {
    say($('picture-message'), '');
    drawOverlay();
  });
  $('picture').addEventListener('error', () => say($('picture-message'), 'the picture could not be loaded', true));
  $('distance').addEventListener('mousemove', pointAt);
  $('distance').addEventListener('mouseleave', () => {
    $('pointer-value').textContent = 'point at the image to read a distance';
  });
  $('models').addEventListener('click', (event) => {
    const row = event.target.closest('tr.roi-row');
    if (!row) return;
    const same = selected && selected.model === row.dataset.model && selected.roi === Number(row.dataset.roi);
    selected = same ? null : { model: row.dataset.model, roi: Number(row.dataset.roi) };
    showModels();
    drawOverlay();
  });
}

// The newest result so far (when there is one), before the events take over.
export async function start(status) {
  if (!status || !status.live || !status.live.results) return;
  try {
    onResult(await get('/api/live'));
  } catch (e) {
    // no result yet after all: the first event brings one
  }
}

export function onResult(result) {
  latest = result;
  const now = performance.now();
  arrivals.push(now);
  while (arrivals.length > 11 || (arrivals.length > 1 && now - arrivals[0] > 10000)) arrivals.shift();
  if (!paused) apply(result);
}

function frameRate(result) {
  if (typeof result.fps === 'number' && result.fps > 0) return result.fps;
  if (arrivals.length < 2) return null;
  return ((arrivals.length - 1) * 1000) / (arrivals[arrivals.length - 1] - arrivals[0]);
}

function apply(result) {
  const fps = frameRate(result);
  $('fps').textContent = fps === null ? '–' : num(fps, 1);
  // A result the server could not take (another client was quicker) leaves the view as it was.
  $('live-problem').textContent = result.problem || '';
  if (result.problem && !result.picture) return;
  $('result-id').textContent = result.id !== undefined ? result.id : '–';
  $('result-sequence').textContent = result.sequence !== undefined ? result.sequence : '–';
  if (result.picture) $('picture').src = withToken(result.picture);
  models = readModels(result.model);
  showModels();
  if (result.distance) fetchDistance(withToken(result.distance));
}

async function fetchDistance(url) {
  distanceWanted = url;
  if (distanceBusy) return;
  distanceBusy = true;
  try {
    while (distanceWanted) {
      const next = distanceWanted;
      distanceWanted = null;
      try {
        distance = parseChunk(await getBytes(next));
        draw(distance, $('distance'));
        const unit = distance.unit;
        $('scale-min').textContent = Number.isFinite(distance.min) ? showValue(distance.min, unit) : '–';
        $('scale-max').textContent = Number.isFinite(distance.max) ? showValue(distance.max, unit) : '–';
        $('distance-size').textContent = `${distance.width}×${distance.height}, in ${unit}`;
        say($('distance-message'), '');
        drawOverlay();
      } catch (e) {
        say($('distance-message'), e.message, true);
      }
    }
  } finally {
    distanceBusy = false;
  }
}

function pointAt(event) {
  if (!distance) return;
  const canvas = $('distance');
  const x = Math.floor((event.offsetX * distance.width) / canvas.clientWidth);
  const y = Math.floor((event.offsetY * distance.height) / canvas.clientHeight);
  if (x < 0 || y < 0 || x >= distance.width || y >= distance.height) return;
  const value = distance.values[y * distance.width + x];
  $('pointer-value').textContent = `x ${x}, y ${y}: ${showValue(value, distance.unit)}`;
}

function counts(model) {
  const c = model.counts;
  const parts = [];
  if (c.numUnderSP1) parts.push(`${c.numUnderSP1} under SP1`);
  if (c.numOverSP2) parts.push(`${c.numOverSP2} over SP2`);
  if (c.numInvalid) parts.push(`${c.numInvalid} invalid`);
  return parts.join(', ');
}

function showModels() {
  const body = $('models');
  const rows = [];
  for (const model of models) {
    const figures = [`${model.rois.length} ROI${model.rois.length === 1 ? '' : 's'}`];
    if (model.counts.numGood !== undefined) figures.push(`${model.counts.numGood} good`);
    if (counts(model)) figures.push(counts(model));
    rows.push(
      el('tr', { class: `model-row ${model.good ? 'good' : 'bad'}` },
        el('th', { scope: 'row', colspan: 2 }, `Model ${model.id}`),
        el('td', { colspan: 3 }, figures.join(', ')),
        el('td', { class: 'verdict' }, model.good ? 'good' : 'bad')));
    for (const { id, roi } of model.rois) {
      const isSelected = selected && selected.model === model.key && selected.roi === id;
      rows.push(
        el('tr', { class: `roi-row ${stateClass(roi.state)}${isSelected ? ' selected' : ''}`,
                   dataset: { model: model.key, roi: String(id) }, title: 'mark this ROI in the picture' },
          el('td', {}, ''),
          el('td', { class: 'number' }, id),
          el('td', {}, roi.type || '–'),
          el('td', { class: 'number' }, roi.distance !== undefined ? num(Number(roi.distance), 0) : ''),
          el('td', { class: 'number' }, `${num(Number(roi.center_x), 1)}, ${num(Number(roi.center_y), 1)}`),
          el('td', { class: 'verdict' }, roi.state || 'no state')));
    }
  }
  if (rows.length === 0) rows.push(el('tr', {}, el('td', { colspan: 6, class: 'dim' }, latest ? 'no models in this result' : 'waiting for the first result')));
  body.replaceChildren(...rows);
}

// Outlines the selected ROI over the picture.
function drawOverlay() {
  const picture = $('picture');
  const canvas = $('overlay');
  const width = picture.naturalWidth || (distance && distance.width) || 0;
  const height = picture.naturalHeight || (distance && distance.height) || 0;
  if (canvas.width !== width * OverlayScale || canvas.height !== height * OverlayScale) {
    canvas.width = width * OverlayScale;
    canvas.height = height * OverlayScale;
  }
  const context = canvas.getContext('2d');
  context.clearRect(0, 0, canvas.width, canvas.height);
  if (!selected) return;
  const model = models.find((m) => m.key === selected.model);
  const entry = model && model.rois.find((r) => r.id === selected.roi);
  if (!entry) return;
  const points = outline(entry.roi);
  if (points.length < 2) return;
  const path = new Path2D();
  points.forEach(([x, y], i) => (i ? path.lineTo(x * OverlayScale, y * OverlayScale) : path.moveTo(x * OverlayScale, y * OverlayScale)));
  path.closePath();
  // The rest of the picture dimmed, the ROI left clear and outlined.
  const around = new Path2D();
  around.rect(0, 0, canvas.width, canvas.height);
  around.addPath(path);
  context.fillStyle = 'rgba(0, 0, 0, 0.45)';
  context.fill(around, 'evenodd');
  context.beginPath();
  context.lineJoin = 'round';
  context.lineWidth = 7;
  context.strokeStyle = 'rgba(0, 0, 0, 0.8)';
  context.stroke(path);
  context.lineWidth = 3.5;
  context.strokeStyle = '#ff3df5';
  context.stroke(path);
}

async function trigger() {
  const message = $('trigger-message');
  say(message, 'triggering…');
  try {
    const reply = await post('/api/trigger', {});
    say(message, replyText(reply, 'triggered'));
  } catch (e) {
    say(message, e.message, true);
  }
}
