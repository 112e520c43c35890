// The models of a result and the outlines of their ROIs, read from the result model as the plug-in
// reads it: the models are the top-level "model_..." entries, each ROI table keyed by id with the
// entries of "ROIsUpdated" replacing those of the same id, and every shape placed and turned the way
// the plug-in draws it into the amplitude picture (y downwards, a positive angle turns clockwise).

// Numbers may come as JSON numbers or as numeric text; anything else reads as 0.
const number = (value) => {
  const n = Number(value);
  return Number.isFinite(n) ? n : 0;
};

function roiTable(model) {
  const table = new Map();
  const rois = model.ROIs;
  if (Array.isArray(rois)) {
    rois.forEach((roi, i) => table.set(String(roi && roi.id !== undefined ? roi.id : i), roi));
  } else if (rois && typeof rois === 'object') {
    for (const [id, roi] of Object.entries(rois)) table.set(id, roi);
  }
  const updates = model.ROIsUpdated && Array.isArray(model.ROIsUpdated.ROIs) ? model.ROIsUpdated.ROIs : [];
  for (const roi of updates) if (roi && typeof roi === 'object') table.set(String(roi.id), roi);
  return table;
}

const isGood = (state) => typeof state === 'string' && state.toLowerCase() === 'good';

// [{key: 'model_001', id, rois: [{id, roi}], counts: {...}, good}], models and ROIs in id order. A
// model is good when none of its ROIs is in another state and none is counted invalid, under or
// over a switch point.
export function readModels(result) {
  const models = [];
  if (!result || typeof result !== 'object') return models;
  for (const [key, model] of Object.entries(result)) {
    if (!key.startsWith('model_') || !model || typeof model !== 'object') continue;
    const rois = [...roiTable(model)]
      .map(([id, roi]) => ({ id: Number.parseInt(id, 10), roi: roi && typeof roi === 'object' ? roi : {} }))
      .sort((a, b) => a.id - b.id);
    const counts = {};
    for (const name of ['numGood', 'numInvalid', 'numUnderSP1', 'numOverSP2'])
      if (model[name] !== undefined) counts[name] = number(model[name]);
    const flagged = (counts.numInvalid || 0) + (counts.numUnderSP1 || 0) + (counts.numOverSP2 || 0);
    const good = flagged === 0 && rois.every(({ roi }) => roi.state === undefined || isGood(roi.state));
    models.push({ key, id: model.id !== undefined ? model.id : key.slice(6), rois, counts, good });
  }
  return models.sort((a, b) => number(a.id) - number(b.id) || a.key.localeCompare(b.key));
}

// 'good', 'bad' or 'none' (no state in the model), for the colours of a ROI.
export function stateClass(state) {
  if (state === undefined || state === null || state === '') return 'none';
  return isGood(state) ? 'good' : 'bad';
}

function placed(points, roi) {
  const t = (number(roi.angle) * Math.PI) / 180;
  const c = Math.cos(t);
  const s = Math.sin(t);
  const cx = number(roi.center_x);
  const cy = number(roi.center_y);
  return points.map(([x, y]) => [cx + x * c - y * s, cy + x * s + y * c]);
}

const diameter = (roi) => number(roi.width !== undefined ? roi.width : roi.height);

function ellipse(a, b) {
  const points = [];
  for (let k = 0; k < 72; ++k) {
    const t = (2 * Math.PI * k) / 72;
    points.push([a * Math.cos(t), b * Math.sin(t)]);
  }
  return points;
}

function regular(corners, d) {
  const points = [];
  if (corners < 3 || corners > 1000) return points;
  for (let k = 0; k < corners; ++k) {
    const phi = (2 * Math.PI * k) / corners;
    points.push([(d / 2) * Math.cos(phi), (d / 2) * Math.sin(phi)]);
  }
  return points;
}

// Corners in a box of 1 by 1 about the origin, y downwards.
const cells = {
  HoneycombLonger: [[-0.5, 0], [-0.25, -0.5], [0.25, -0.5], [0.5, 0], [0.25, 0.5], [-0.25, 0.5]],
  HoneycombShorter: [[0, -0.5], [0.5, -0.25], [0.5, 0.25], [0, 0.5], [-0.5, 0.25], [-0.5, -0.25]],
  HoneycombRight: [[-0.5, -0.5], [0.5, -0.25], [0.5, 0.25], [-0.5, 0.5]],
  HoneycombLeft: [[0.5, -0.5], [0.5, 0.5], [-0.5, 0.25], [-0.5, -0.25]],
};

// The ROI's outline on the image as [[x, y], ...]; empty for a type the plug-in does not draw.
export function outline(roi) {
  const w = number(roi.width);
  const h = number(roi.height);
  const d = diameter(roi);
  switch (roi.type) {
    case 'Rect':
      return placed([[-w / 2, -h / 2], [w / 2, -h / 2], [w / 2, h / 2], [-w / 2, h / 2]], roi);
    case 'Square':
      return placed([[-d / 2, -d / 2], [d / 2, -d / 2], [d / 2, d / 2], [-d / 2, d / 2]], roi);
    case 'Ellipse':
      return placed(ellipse(Math.abs(w) / 2, Math.abs(h) / 2), roi);
    case 'Circle':
      return placed(ellipse(Math.abs(d) / 2, Math.abs(d) / 2), roi);
    case 'Hexagon':
      return placed(regular(6, d), roi);
    case 'Regular':
      return placed(regular(Math.trunc(number(roi.points)), d), roi);
    case 'Poly':
      return Array.isArray(roi.points) ? roi.points.map((p) => [number(p && p.x), number(p && p.y)]) : [];
    default:
      if (cells[roi.type]) return placed(cells[roi.type].map(([x, y]) => [x * w, y * h]), roi);
      return [];
  }
}
