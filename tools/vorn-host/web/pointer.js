// Where a JSON pointer ("/elements/0/type") lies in the text of a description, so that a problem
// can be shown at its place. Reads as far as the text allows: for a pointer into a part that is
// missing or broken, the deepest part found is given.

// {start, end}: the characters of the value the pointer names, or of the deepest one on its way.
export function locate(text, pointer) {
  const steps = pointer.split('/').slice(1).map((s) => s.replace(/~1/g, '/').replace(/~0/g, '~'));
  let i = 0;
  const space = () => {
    while (i < text.length && /\s/.test(text[i])) ++i;
  };
  const string = () => {
    const start = i++;
    while (i < text.length && text[i] !== '"') i += text[i] === '\\' ? 2 : 1;
    ++i;
    return JSON.parse(text.slice(start, Math.min(i, text.length)) || '""');
  };
  // Skips one value; true when it was whole.
  const skip = () => {
    space();
    if (text[i] === '"') {
      string();
      return true;
    }
    if (text[i] === '{' || text[i] === '[') {
      let depth = 0;
      do {
        if (text[i] === '"') {
          string();
          continue;
        }
        if (text[i] === '{' || text[i] === '[') ++depth;
        if (text[i] === '}' || text[i] === ']') --depth;
        ++i;
      } while (i < text.length && depth > 0);
      return depth === 0;
    }
    while (i < text.length && !/[\s,\]}]/.test(text[i])) ++i;
    return true;
  };
  space();
  let found = { start: i, end: i };
  try {
    for (const step of steps) {
      const opening = text[i];
      const start = i;
      if (!skip()) break;
      found = { start, end: i };
      i = start + 1;
      let hit = false;
      for (let index = 0; ; ++index) {
        space();
        if (text[i] === '}' || text[i] === ']' || i >= text.length) break;
        let name = String(index);
        if (opening === '{') {
          name = string();
          space();
          ++i; // the colon
        }
        space();
        if (name === step) {
          hit = true;
          break;
        }
        skip();
        space();
        if (text[i] === ',') ++i;
      }
      if (!hit) return found;
    }
    const start = i;
    skip();
    return { start, end: i };
  } catch (e) {
    return found; // a broken string: the deepest part read so far
  }
}

// The character at "line L, column C" of a message about unreadable JSON, or null.
export function lineColumn(text, message) {
  const m = /line (\d+), column (\d+)/.exec(message || '');
  if (!m) return null;
  const lines = text.split('\n');
  const line = Math.min(Number(m[1]), lines.length);
  let at = 0;
  for (let k = 0; k < line - 1; ++k) at += lines[k].length + 1;
  at += Math.max(0, Math.min(Number(m[2]) - 1, lines[line - 1].length));
  return { start: at, end: Math.min(at + 1, text.length) };
}
