// Draws the scope: grid and scales on one canvas, traces on another above it, marks and the cursor; and
// takes wheel, drag and keys.

import {fixed, onScheme, onSize, variable} from './dom.js';
import {onFrame} from './frames.js';
import {niceRange, niceStep, pixelOf, Plot} from './plot.js';

const hues = 7;
const mostNumbers = 16;
const mostOfOne = 12;
const leastNamed = 20;

export class ScopeView {
  constructor(scope, back, front) {
    this.scope = scope;
    this.front = front;
    this.back = back.getContext('2d', {willReadFrequently: true});
    this.plot = new Plot(front);
    this.isInLanes = true;
    this.cursorMs = null;
    onSize(front.parentElement, (width, height, ratio) => this.resize(back, width, height, ratio));
    onScheme(() => this.colour());
    scope.onChange(() => this.touch());
    this.listen();
    onFrame(() => this.frame());
  }

  touch() {
    this.isStale = true;
  }

  resize(back, width, height, ratio) {
    this.ratio = ratio;
    this.leftPx = Math.round(52 * ratio);
    this.bottomPx = Math.round(18 * ratio);
    back.width = width;
    back.height = height;
    this.plot.resize(Math.max(1, width - this.leftPx), Math.max(1, height - this.bottomPx), ratio);
    this.touch();
  }

  colour() {
    this.colours = Array.from({length: hues}, (_, i) => variable(`--trace-${i + 1}`));
    this.inks = this.colours.map(pixelOf);
    this.lineColour = variable('--line');
    this.gridColour = variable('--grid');
    this.textColour = variable('--quiet');
    this.panelColour = variable('--panel');
    this.markColour = variable('--mark');
    this.touch();
  }

  hue(group) {
    return this.groups().indexOf(group) % hues;
  }

  groups() {
    return [...new Set(this.scope.traces.map((trace) => trace.group))];
  }

  listen() {
    this.front.addEventListener('wheel', (event) => {
      event.preventDefault();
      this.scope.zoom(event.deltaY > 0 ? 1.25 : 0.8, this.timeAt(event.offsetX));
    }, {passive: false});
    this.front.addEventListener('pointerdown', (event) => {
      this.front.setPointerCapture(event.pointerId);
      this.drag = event.clientX;
    });
    this.front.addEventListener('pointermove', (event) => this.pointer(event));
    this.front.addEventListener('pointerup', () => {
      this.drag = null;
    });
    this.front.addEventListener('pointerleave', () => this.setCursor(null));
    this.front.addEventListener('keydown', (event) => this.key(event));
  }

  pointer(event) {
    if (event.buttons === 1 && this.drag !== null) {
      const movedMs = (event.clientX - this.drag) * this.msPerPixel();
      if (movedMs !== 0) {
        this.drag = event.clientX;
        this.scope.move(-movedMs);
      }
    }
    this.setCursor(this.timeAt(event.offsetX));
  }

  key(event) {
    const {spanMs} = this.scope;
    const step = 20 * this.msPerPixel();
    const actions = {
      ArrowLeft: () => (event.shiftKey ? this.scope.move(-spanMs / 4) : this.moveCursor(-step)),
      ArrowRight: () => (event.shiftKey ? this.scope.move(spanMs / 4) : this.moveCursor(step)),
      '+': () => this.scope.zoom(0.8), '=': () => this.scope.zoom(0.8), '-': () => this.scope.zoom(1.25),
      Escape: () => this.setCursor(null), End: () => this.scope.pause(false), p: () => this.scope.pause(!this.scope.isPaused),
    };
    if (actions[event.key]) {
      event.preventDefault();
      actions[event.key]();
    }
  }

  msPerPixel() {
    return this.scope.spanMs * this.ratio / this.plot.width;
  }

  timeAt(offsetX) {
    return this.scope.window().fromMs + offsetX * this.msPerPixel();
  }

  moveCursor(byMs) {
    const {fromMs, toMs} = this.scope.window();
    this.setCursor(Math.min(toMs, Math.max(fromMs, (this.cursorMs ?? (fromMs + toMs) / 2) + byMs)));
  }

  setCursor(timeMs) {
    this.cursorMs = timeMs;
    this.touch();
    this.onCursor?.();
  }

  frame() {
    if (this.isStale) {
      this.isStale = false;
      this.draw();
    }
  }

  draw() {
    const {ring} = this.scope;
    const {width, height} = this.plot;
    const window = this.scope.window();
    this.columnMs = this.scope.spanMs / width;
    this.plot.begin(ring, Number.isNaN(window.fromMs) ? 0 : window.fromMs, this.columnMs);
    this.fromMs = this.plot.firstColumn * this.columnMs;
    this.back.clearRect(0, 0, width + this.leftPx, height + this.bottomPx);
    this.back.font = `${11 * this.ratio}px system-ui, sans-serif`;
    this.drawTimes();
    const lanes = this.lanes();
    lanes.forEach((lane, i) => this.drawLane(lane, i, lanes.length));
    this.plot.end();
    this.drawMarks(lanes);
  }

  // What shares a scale: all traces, or those of an axis.
  lanes() {
    const {traces} = this.scope;
    return !this.isInLanes ? [{name: '', traces}]
      : this.groups().map((name) => ({name, traces: traces.filter((trace) => trace.group === name)}));
  }

  drawTimes() {
    const {width, height} = this.plot;
    const step = niceStep(this.scope.spanMs, width / (90 * this.ratio));
    this.back.strokeStyle = this.gridColour;
    this.back.fillStyle = this.textColour;
    this.back.lineWidth = 1;
    this.back.textAlign = 'center';
    this.back.textBaseline = 'top';
    this.back.beginPath();
    for (let time = Math.ceil(this.fromMs / step) * step; time <= this.fromMs + this.scope.spanMs; time += step) {
      const x = Math.round(this.leftPx + (time - this.fromMs) / this.columnMs) + 0.5;
      this.back.moveTo(x, 0);
      this.back.lineTo(x, height);
      if (x > this.leftPx + 12 * this.ratio && x < this.leftPx + width - 12 * this.ratio) {
        this.back.fillText(`${Number((time / 1000).toFixed(3))} s`, x, height + 4 * this.ratio);
      }
    }
    this.back.stroke();
  }

  drawLane(lane, index, count) {
    const {ring} = this.scope;
    const {height, columns, width} = this.plot;
    const top = Math.round(index * height / count);
    const bottom = Math.round((index + 1) * height / count);
    let low = Infinity;
    let high = -Infinity;
    for (const {key} of lane.traces) {
      ring.extent(ring.traces.get(key), columns[0], columns[width]);
      low = Math.min(low, ring.low);
      high = Math.max(high, ring.high);
    }
    [low, high] = niceRange(low, high);
    const pad = 3 * this.ratio;
    const unit = -(bottom - top - 2 * pad) / (high - low);
    lane.scale = {top, bottom, unit, zero: bottom - pad - unit * low, low, high};
    this.drawScale(lane, index);
    for (const trace of lane.traces) {
      this.plot.trace(ring.traces.get(trace.key), this.inks[this.hue(trace.group)], trace.isDashed, lane.scale);
    }
  }

  drawScale({scale}, index) {
    const {top, bottom, low, high, zero, unit} = scale;
    const {back, leftPx, ratio} = this;
    const right = leftPx + this.plot.width;
    back.beginPath();
    back.strokeStyle = this.lineColour;
    back.moveTo(index > 0 ? 0 : leftPx, top + 0.5);
    back.lineTo(right, top + 0.5);
    back.stroke();
    back.beginPath();
    back.strokeStyle = this.gridColour;
    back.textAlign = 'right';
    back.textBaseline = 'middle';
    const step = niceStep(high - low, (bottom - top) / (26 * ratio));
    for (let i = Math.ceil(low / step); i * step <= high; ++i) {
      const y = Math.round(zero + unit * i * step) + 0.5;
      back.moveTo(leftPx, y);
      back.lineTo(right, y);
      if (y > top + 5 * ratio && y < bottom - 5 * ratio) {
        back.fillText(String(Number((i * step).toPrecision(6))).replace('-', '−'), leftPx - 6 * ratio, y);
      }
    }
    back.stroke();
  }

  // Over the traces, on a ground of its own.
  drawName({name, scale}) {
    const {context} = this.plot;
    const {ratio} = this;
    context.fillStyle = this.panelColour;
    context.fillRect(3 * ratio, scale.top + 2 * ratio, context.measureText(name).width + 6 * ratio, 14 * ratio);
    context.fillStyle = this.textColour;
    context.textAlign = 'left';
    context.textBaseline = 'middle';
    context.fillText(name, 6 * ratio, scale.top + 9 * ratio);
  }

  drawMarks(lanes) {
    const {context, width, height} = this.plot;
    context.font = `600 ${10.5 * this.ratio}px system-ui, sans-serif`;
    if (!this.isInLanes && this.scope.traces.length <= mostNumbers) {
      this.scope.traces.forEach((trace, i) => this.drawNumber(trace, String(i + 1), lanes[0].scale));
    }
    if (this.isInLanes) {
      lanes.filter(({scale}) => scale.bottom - scale.top > leastNamed * this.ratio).forEach((lane) => this.drawName(lane));
    }
    const {edge, atMs, key, level} = this.scope.trigger;
    if (edge !== 'off') {
      const lane = lanes.find((each) => each.traces.some((trace) => trace.key === key));
      const y = lane ? lane.scale.zero + lane.scale.unit * level : -1;
      this.line(0, y, width, y);
      if (atMs !== null) {
        const x = (atMs - this.fromMs) / this.columnMs;
        this.line(x, 0, x, height);
      }
    }
    if (this.cursorMs !== null) {
      const x = (this.cursorMs - this.fromMs) / this.columnMs;
      this.line(x, 0, x, height);
      context.textAlign = x > width / 2 ? 'right' : 'left';
      context.textBaseline = 'bottom';
      context.fillStyle = this.markColour;
      context.fillText(` ${(this.cursorMs / 1000).toFixed(3)} s `, x, height - 2);
    }
  }

  line(x1, y1, x2, y2) {
    const {context} = this.plot;
    context.strokeStyle = this.markColour;
    context.lineWidth = this.ratio;
    context.setLineDash([4 * this.ratio, 3 * this.ratio]);
    context.beginPath();
    context.moveTo(x1, y1);
    context.lineTo(x2, y2);
    context.stroke();
    context.setLineDash([]);
  }

  // The number of a trace stands along it, so that colour is not the only sign.
  drawNumber(trace, text, scale) {
    const {ring} = this.scope;
    const {context, width} = this.plot;
    const shift = (Number(text) * 37) % mostOfOne / mostOfOne;
    const x = width * (0.98 - 0.25 * shift);
    const value = ring.valueAt(ring.traces.get(trace.key), this.fromMs + x * this.columnMs);
    if (Number.isFinite(value)) {
      context.fillStyle = this.colours[this.hue(trace.group)];
      context.textAlign = 'center';
      context.textBaseline = 'bottom';
      context.fillText(text, x, scale.zero + scale.unit * value - 2 * this.ratio);
    }
  }

  // What the read-out says of a trace: at the cursor, or now.
  reading(trace) {
    const {ring} = this.scope;
    const values = ring.traces.get(trace.key);
    return fixed(this.cursorMs === null ? values.values[(ring.end - 1) & ring.mask] : ring.valueAt(values, this.cursorMs));
  }
}
