// What the scope shows and since when: the chosen values, their stream with every cycle, the window of
// time, pause, trigger. How it is drawn: scopeview.js.

import {Stream} from './door.js';
import {bare} from './machine.js';
import {Ring} from './ring.js';

const messagesPerSecond = 40;
export const longestMs = 60000;
const shortestCycles = 8;
export const mostTraces = 60;
const before = 0.2;
const settleMs = 50;

export class Scope {
  constructor(door, machine) {
    this.machine = machine;
    this.ring = new Ring(machine.description.cycle_ms, longestMs);
    this.traces = [];
    this.spanMs = 10000;
    this.endMs = null;
    this.trigger = {edge: 'off', key: null, level: 0, atMs: null};
    this.listeners = [];
    this.shortestMs = shortestCycles * machine.description.cycle_ms;
    this.stream = new Stream(door, () => this.path(), (message) => this.take(message));
  }

  // Called with 'traces', 'samples' or 'window'.
  onChange(listener) {
    this.listeners.push(listener);
  }

  tell(what) {
    this.listeners.forEach((listener) => listener(what));
  }

  path() {
    if (this.traces.length === 0) {
      return null;
    }
    const query = new URLSearchParams({every_cycle: 'true', rate: messagesPerSecond});
    this.traces.forEach((trace) => query.append('key', trace.key));
    return `/v1/live?${query}`;
  }

  take(message) {
    if (message.keys) {
      this.keys = message.keys;
      return;
    }
    const from = this.ring.end;
    this.ring.append(this.keys, message.machine_ms, message.values);
    this.watchTrigger(from);
    this.tell('samples');
  }

  has(key) {
    return this.traces.some((trace) => trace.key === key);
  }

  // Keys that are there, or are one too many, are left out.
  add(keys) {
    for (const key of keys) {
      if (!this.has(key) && this.traces.length < mostTraces) {
        this.ring.add(key);
        this.traces.push(this.traceOf(key));
      }
    }
    this.traced();
  }

  remove(keys) {
    keys.forEach((key) => this.ring.remove(key));
    this.traces = this.traces.filter((trace) => !keys.includes(trace.key));
    this.traced();
  }

  traced() {
    if (!this.has(this.trigger.key)) {
      this.trigger = {...this.trigger, key: this.traces[0]?.key ?? null, atMs: null};
    }
    this.tell('traces');
    clearTimeout(this.reopening);
    this.reopening = setTimeout(() => this.stream.reopen(), settleMs);
  }

  // Command and measurement of one axis belong together, in name, colour and lane.
  traceOf(key) {
    const axis = this.machine.axes.find((each) => each.key === key || each.sensor === key);
    const isCommand = axis?.key === key;
    return {
      key,
      group: axis?.name ?? bare(key),
      name: axis?.name ?? bare(key),
      tag: axis === undefined ? '' : isCommand ? 'cmd' : 'meas',
      isDashed: isCommand,
      axis,
    };
  }

  // The window, in machine time.
  window() {
    const end = this.endMs ?? this.triggeredEnd() ?? this.ring.lastMs;
    return {fromMs: end - this.spanMs, toMs: end};
  }

  triggeredEnd() {
    return this.trigger.atMs === null ? null : this.trigger.atMs + (1 - before) * this.spanMs;
  }

  get isPaused() {
    return this.endMs !== null;
  }

  pause(isPaused) {
    this.endMs = isPaused ? this.window().toMs : null;
    this.tell('window');
  }

  // Zooms around a moment, which stays where it is; live, the newest sample does.
  zoom(factor, aroundMs = null) {
    const span = Math.min(longestMs, Math.max(this.shortestMs, this.spanMs * factor));
    if (this.endMs !== null || aroundMs !== null) {
      const {toMs} = this.window();
      const around = aroundMs ?? toMs - this.spanMs / 2;
      this.show(around + (toMs - around) * span / this.spanMs, span);
    } else {
      this.spanMs = span;
      this.tell('window');
    }
  }

  // Moves into the past; at the newest sample it goes live again.
  move(byMs) {
    this.show(this.window().toMs + byMs, this.spanMs);
  }

  show(endMs, spanMs) {
    const oldest = this.ring.lastMs - longestMs;
    this.spanMs = spanMs;
    this.endMs = endMs >= this.ring.lastMs ? null : Math.max(endMs, oldest + spanMs);
    this.tell('window');
  }

  setTrigger(change) {
    this.trigger = {...this.trigger, ...change, atMs: null};
    this.endMs = null;
    this.tell('window');
  }

  // A crossing counts when the window of the one before is full.
  watchTrigger(from) {
    const {edge, key, level} = this.trigger;
    const trace = this.ring.traces.get(key);
    if (edge === 'off' || trace === undefined) {
      return;
    }
    const sign = edge === 'rising' ? 1 : -1;
    for (let number = Math.max(from, this.ring.first + 1); number < this.ring.end; ++number) {
      const was = sign * (trace.values[(number - 1) & this.ring.mask] - level);
      const is = sign * (trace.values[number & this.ring.mask] - level);
      const timeMs = this.ring.timeAt(number);
      if (was < 0 && is >= 0 && !(timeMs < this.triggeredEnd())) {
        this.trigger.atMs = timeMs;
      }
    }
  }

  // The window as CSV. A name that a spreadsheet would take for a formula has an apostrophe before it.
  csv() {
    const {fromMs, toMs} = this.window();
    const quoted = (name) => `"${(/^[=+\-@\t\r]/.test(name) ? `'${name}` : name).replaceAll('"', '""')}"`;
    const traces = this.traces.map((trace) => this.ring.traces.get(trace.key));
    const lines = [['machine_ms', ...this.traces.map((trace) => quoted(bare(trace.key)))].join(',')];
    for (let number = this.ring.at(fromMs); number < this.ring.end && this.ring.timeAt(number) <= toMs; ++number) {
      const row = traces.map((trace) => trace.values[number & this.ring.mask]);
      lines.push([this.ring.timeAt(number), ...row.map((value) => (Number.isNaN(value) ? '' : value))].join(','));
    }
    return `${lines.join('\n')}\n`;
  }
}
