// This tab as a commander: takes axes, keeps its lease of one second alive by messages of this very
// script (a frozen page falls silent, and its axes ramp to rest), and gives them back when it is hidden.

import {Refusal} from './door.js';

const leaseMs = 1000;
const renewMs = 200;

export class Commander {
  constructor(door, machine, events) {
    this.door = door;
    this.machine = machine;
    this.events = events;
    this.name = `page-${crypto.getRandomValues(new Uint16Array(1))[0].toString(16).padStart(4, '0')}`;
    this.id = null;
    this.key = null;
    this.axes = [];
    this.listeners = [];
    setInterval(() => this.id !== null && events.renew(), renewMs);
    events.onEvent((event) => this.notice(event));
    document.addEventListener('visibilitychange', () => {
      if (document.hidden) {
        this.giveBack('This page was hidden: its axes were given back.');
      }
    });
    window.addEventListener('pagehide', () => this.giveBack());
  }

  // Called with a sentence for people, or without one.
  onChange(listener) {
    this.listeners.push(listener);
    listener('');
  }

  tell(sentence = '') {
    this.listeners.forEach((listener) => listener(sentence));
  }

  owns(axis) {
    return this.axes.includes(axis.name);
  }

  // What a request shows that is to command axes of this page.
  credentials() {
    return this.key === null ? {} : {commander: this.key};
  }

  // Takes these axes, which may include those that it has. Whether it did; why not, is told.
  async take(axes) {
    const names = axes.map((axis) => axis.name);
    if (names.every((name) => this.axes.includes(name))) {
      return true;
    }
    const all = [...new Set([...this.axes, ...names])];
    await this.giveBack();
    return this.attempt(async () => {
      const mine = await this.door.post('/v1/commanders',
        {name: this.name, axes: all, lease_ms: leaseMs, on_loss: 'stop'});
      this.become(mine, mine.axes, '');
    });
  }

  become(mine, axes, sentence) {
    this.id = mine?.id ?? null;
    this.key = mine?.key ?? null;
    this.axes = axes;
    this.events.renewFor(this.key);
    this.tell(sentence);
    this.machine.refresh();
  }

  async giveBack(sentence = '') {
    const key = this.key;
    if (key === null) {
      return;
    }
    this.become(null, [], sentence);
    await this.door.remove(`/v1/commanders/${key}`).catch(() => {});
    this.machine.refresh();
  }

  notice(event) {
    if (event.kind === 'lost' && event.commander === this.id) {
      this.become(null, [], 'The machine heard nothing from this page for a second: its axes came to rest.');
    }
  }

  // The answer, or null where it was refused.
  command(batches) {
    return this.attempt(() => this.door.post('/v1/batches', {commander: this.key, batches}), null);
  }

  stop(axes) {
    return this.command([{stop: axes.map((axis) => axis.name)}]);
  }

  async attempt(action, refused = false) {
    try {
      const result = await action();
      this.machine.refresh();
      return result ?? true;
    } catch (fault) {
      if (!(fault instanceof Refusal)) {
        throw fault;
      }
      if (fault.reason === 'unknown' && this.id !== null) {
        this.become(null, [], 'This page no longer owns its axes.');
      }
      this.tell(sentenceOf(fault, this.machine));
      return refused;
    }
  }
}

function sentenceOf(fault, machine) {
  const axis = machine.axisOf.get(fault.error.key)?.name ?? fault.error.key ?? 'The axis';
  switch (fault.reason) {
    case 'owned':
      return fault.error.owner ? `${axis} is owned by ${fault.error.owner}.` : `${axis} is not yours: take it first.`;
    case 'held':
      return `${axis} is held: release it first.`;
    case 'guard':
      return `${axis} is held by the guard: release it first.`;
    default:
      return `Refused: ${fault.message}`;
  }
}
