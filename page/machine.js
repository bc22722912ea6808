// What the machine is and how it stands: axes, owners and holds as it tells them, and the values
// of its latest cycle. Everybody else on the page reads here.

import {Stream} from './door.js';
import {onFrame} from './frames.js';

const pollMs = 500;
const manyAxes = 200;

export class Machine {
  constructor(door, description) {
    this.door = door;
    this.instance = description.instance;
    this.values = {};
    this.timeMs = description.machine_ms;
    this.changed = [];
    this.moved = [];
    onFrame(() => this.showValues());
    this.take(description);
    // What cycles write.
    this.numbers = description.attributes
      .filter((attribute) => ['float', 'integer'].includes(attribute.type) && attribute.key.endsWith('/Value'))
      .map((attribute) => attribute.key);
  }

  static async found(door) {
    return new Machine(door, await door.get('/v1/machine'));
  }

  // Owners, holds, targets changed.
  onChange(listener) {
    this.changed.push(listener);
    listener();
  }

  // New values, with the beat of the picture.
  onValues(listener) {
    this.moved.push(listener);
  }

  start() {
    const rate = this.axes.length > manyAxes ? 10 : 30;
    new Stream(this.door, () => `/v1/live?key=${encodeURIComponent('*/Value')}&rate=${rate}`,
      (message) => this.takeValues(message));
    setInterval(() => document.hidden || this.refresh(), pollMs);
  }

  takeValues(message) {
    this.values = message.values;
    this.timeMs = message.machine_ms;
    this.isFresh = true;
  }

  showValues() {
    if (this.isFresh) {
      this.isFresh = false;
      this.moved.forEach((listener) => listener());
    }
  }

  // Asks again; calls while one is on its way count as one.
  refresh() {
    this.wanted = true;
    this.refreshing ??= this.read().finally(() => {
      this.refreshing = null;
    });
    return this.refreshing;
  }

  async read() {
    while (this.wanted) {
      this.wanted = false;
      try {
        const description = await this.door.get('/v1/machine');
        if (description.instance !== this.instance) {
          location.reload();
          return;
        }
        this.take(description);
        this.changed.forEach((listener) => listener());
      } catch {
        return;
      }
    }
  }

  take(description) {
    this.description = description;
    this.axes = description.axes;
    this.axisOf = new Map(this.axes.map((axis) => [axis.key, axis]));
    this.commanders = description.commanders;
  }

  command(axis) {
    return this.values[axis.key] ?? null;
  }

  measured(axis) {
    return axis.sensor === null ? null : this.values[axis.sensor] ?? null;
  }

  // Milliseconds until the last point of an axis is due.
  backlogMs(axis) {
    return axis.backlog_ms > 0
      ? Math.max(0, this.description.machine_ms + axis.backlog_ms - this.timeMs) : 0;
  }

  axisNamed(name) {
    return this.axes.find((axis) => axis.name === name);
  }
}

// How a key reads best: without the path that all share.
export function bare(key) {
  return key.replace(/^Device\/SubDeviceList\//, '');
}

const units = {revolute: 'rad', continuous: 'rad', prismatic: 'm'};

export const unitOf = (axis) => units[axis.kind] ?? '';
