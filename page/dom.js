// Builds elements. All text, names from files included, becomes text nodes and never markup.

// el('button', {class: 'quiet', onclick: f, 'aria-label': 'Stop'}, 'Stop', icon): functions become
// listeners, false and null leave an attribute out, true sets it empty.
export function el(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === 'function') {
      element.addEventListener(name.slice(2), value);
    } else if (value !== false && value !== null && value !== undefined) {
      element.setAttribute(name, value === true ? '' : value);
    }
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

export const byId = (id) => document.getElementById(id);

// Writes only what changed: layout is the dear part of a table that lives.
export function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

export function setAttribute(element, name, value) {
  if (element.getAttribute(name) !== value) {
    element.setAttribute(name, value);
  }
}

// A number at a width that does not jump while it changes.
export function fixed(value, isInteger = false) {
  if (value === null || value === undefined || Number.isNaN(value)) {
    return '–';
  }
  if (typeof value === 'string') {
    return value;
  }
  const size = Math.abs(value);
  const text = isInteger ? String(value)
    : size !== 0 && (size >= 1e6 || size < 1e-4) ? value.toExponential(2)
      : value.toFixed(size >= 1000 ? 1 : size >= 100 ? 2 : size >= 10 ? 3 : 4);
  return text.replace('-', '−');
}

export const seconds = (ms) => (ms / 1000).toFixed(ms < 100000 ? 1 : 0);

// A CSS variable of the present colour scheme.
export function variable(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

// Calls back now and whenever the colour scheme changes.
export function onScheme(callback) {
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', callback);
  callback();
}

// Calls back with the size of an element in device pixels whenever it changes.
export function onSize(element, callback) {
  const observer = new ResizeObserver(() => {
    const ratio = window.devicePixelRatio || 1;
    callback(Math.max(1, Math.round(element.clientWidth * ratio)),
      Math.max(1, Math.round(element.clientHeight * ratio)), ratio);
  });
  observer.observe(element);
}
