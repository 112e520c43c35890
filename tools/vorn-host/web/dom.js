// Small helpers to build and fill the page without a framework.

export const $ = (id) => document.getElementById(id);

// el('td', {class: 'x', dataset: {offset: 3}}, 'text', child): an element with attributes and
// children (text or nodes; null and false are skipped).
export function el(tag, attrs = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs)) {
    if (value === null || value === undefined || value === false) continue;
    if (key === 'dataset') Object.assign(node.dataset, value);
    else if (key === 'class') node.className = value;
    else if (key.startsWith('on')) node.addEventListener(key.slice(2), value);
    else node.setAttribute(key, value === true ? '' : value);
  }
  for (const child of children.flat()) {
    if (child === null || child === undefined || child === false) continue;
    node.append(child instanceof Node ? child : String(child));
  }
  return node;
}

// Shows the outcome of an action next to the control that made it: an error in red, anything
// else plainly; an empty text clears it.
export function say(node, text, isError = false) {
  node.textContent = text;
  node.classList.toggle('error', Boolean(isError) && text !== '');
}

// Runs fn when the user stopped typing for `ms` milliseconds.
export function debounce(fn, ms) {
  let timer = null;
  return (...args) => {
    clearTimeout(timer);
    timer = setTimeout(() => fn(...args), ms);
  };
}

// A number for people: integers as they are, others with `digits` decimals.
export function num(value, digits = 1) {
  if (typeof value !== 'number' || !Number.isFinite(value)) return value === undefined || value === null ? '–' : String(value);
  return Number.isInteger(value) ? String(value) : value.toFixed(digits);
}
