// The distance image as the plug-in hands it out: a 48-byte chunk header of little-endian words
// (type, size, header size, version, width, height, pixel format, ...) and the pixels row by row.

// Pixel formats: how to read one pixel, its size and the unit of its value.
const formats = {
  0: { bytes: 1, read: (v, at) => v.getUint8(at), unit: 'mm' },
  2: { bytes: 2, read: (v, at) => v.getUint16(at, true), unit: 'mm' },
  3: { bytes: 2, read: (v, at) => v.getInt16(at, true), unit: 'mm' },
  4: { bytes: 4, read: (v, at) => v.getInt32(at, true), unit: 'mm' },
  6: { bytes: 4, read: (v, at) => v.getFloat32(at, true), unit: 'm' },
};

const HeaderSize = 48;

// {width, height, format, unit, values: Float64Array, min, max} or throws with what is wrong. A
// pixel of 0 or not a number is no measurement: it is left out of min and max.
export function parseChunk(buffer) {
  if (buffer.byteLength < HeaderSize)
    throw new Error(`the distance image has ${buffer.byteLength} bytes, fewer than its 48-byte header`);
  const view = new DataView(buffer);
  const headerSize = view.getUint32(8, true);
  const width = view.getUint32(16, true);
  const height = view.getUint32(20, true);
  const format = view.getUint32(24, true);
  const pixel = formats[format];
  if (!pixel) throw new Error(`the distance image has pixel format ${format}, which the page cannot show`);
  const start = headerSize >= HeaderSize && headerSize < buffer.byteLength ? headerSize : HeaderSize;
  const count = width * height;
  if (count === 0 || start + count * pixel.bytes > buffer.byteLength)
    throw new Error(`the distance image is cut: ${width}×${height} pixels do not fit in ${buffer.byteLength} bytes`);
  const values = new Float64Array(count);
  let min = Infinity;
  let max = -Infinity;
  for (let i = 0; i < count; ++i) {
    const v = pixel.read(view, start + i * pixel.bytes);
    values[i] = v;
    if (v !== 0 && Number.isFinite(v)) {
      if (v < min) min = v;
      if (v > max) max = v;
    }
  }
  if (min > max) min = max = NaN;
  return { width, height, format, unit: pixel.unit, values, min, max };
}

// A value with its unit: whole millimetres, metres to the millimetre.
export function showValue(value, unit) {
  if (value === 0 || !Number.isFinite(value)) return 'no measurement';
  return unit === 'm' ? `${value.toFixed(3)} m` : `${Math.round(value)} mm`;
}

// 256 colours from near (red) over yellow, green and cyan to far (blue).
const stops = [[180, 0, 20], [255, 200, 0], [40, 200, 60], [0, 200, 230], [30, 40, 200]];
export const palette = (() => {
  const out = [];
  for (let i = 0; i < 256; ++i) {
    const t = (i / 255) * (stops.length - 1);
    const k = Math.min(Math.floor(t), stops.length - 2);
    const f = t - k;
    out.push(stops[k].map((c, j) => Math.round(c + (stops[k + 1][j] - c) * f)));
  }
  return out;
})();

// Draws the image in false colour on the canvas (one canvas pixel per image pixel; CSS scales it),
// no measurement in black.
export function draw(image, canvas) {
  canvas.width = image.width;
  canvas.height = image.height;
  const context = canvas.getContext('2d');
  const data = context.createImageData(image.width, image.height);
  const span = image.max - image.min || 1;
  for (let i = 0; i < image.values.length; ++i) {
    const v = image.values[i];
    const o = i * 4;
    data.data[o + 3] = 255;
    if (v === 0 || !Number.isFinite(v) || !Number.isFinite(image.min)) continue;
    const [r, g, b] = palette[Math.max(0, Math.min(255, Math.round(((v - image.min) / span) * 255)))];
    data.data[o] = r;
    data.data[o + 1] = g;
    data.data[o + 2] = b;
  }
  context.putImageData(data, 0, 0);
}

// The colour scale: the palette from left (min) to right (max).
export function drawScale(canvas) {
  canvas.width = 256;
  canvas.height = 1;
  const context = canvas.getContext('2d');
  const data = context.createImageData(256, 1);
  palette.forEach(([r, g, b], i) => data.data.set([r, g, b, 255], i * 4));
  context.putImageData(data, 0, 0);
}
