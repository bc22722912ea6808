// Events as they come: the stream of them, from which others of the page are told, and the list,
// filtered by axis. The stream also carries the renewals of this tab's lease.

import {byId, el, seconds} from './dom.js';
import {Stream} from './door.js';

const mostShown = 300;

export class Events {
  constructor(door) {
    this.door = door;
    this.listeners = [];
    this.next = null;
    this.commander = null;
  }

  start() {
    this.stream = new Stream(this.door, () => this.path(), (event) => this.take(event));
  }

  path() {
    const query = new URLSearchParams();
    if (this.next !== null) {
      query.set('since', this.next);
    }
    if (this.commander !== null) {
      query.set('commander', this.commander);
    }
    return `/v1/events?${query}`;
  }

  take(event) {
    this.next = event.kind === 'begins' || event.kind === 'missed' ? event.number : event.number + 1;
    this.listeners.forEach((listener) => listener(event));
  }

  onEvent(listener) {
    this.listeners.push(listener);
  }

  renewFor(commander) {
    if (commander !== this.commander) {
      this.commander = commander;
      this.stream.reopen();
    }
  }

  renew() {
    this.stream.send('renew');
  }
}

const signs = {
  taken: '+', reached: '✓', cleared: '×', late: '◷', limited: '⊣', steep: '∕', abrupt: '∕', beyond: '⊣',
  unstopped: '∕', refused: '!', handed_late: '◷', guarded: '▲', external: '⇄', stalled: '◷',
  starved: '◷', dropped_rows: '…', recorded: '●', unrecorded: '!',
  stopped: '■', held: '■', released: '□', registered: '→', lost: '←', missed: '…',
};
const countless = ['registered', 'lost', 'held', 'released', 'stalled', 'recorded', 'unrecorded'];
const inCycles = ['guarded', 'external', 'starved', 'dropped_rows'];
const alarming = ['refused', 'guarded', 'held', 'stalled', 'missed', 'lost', 'dropped_rows', 'unrecorded'];

function told(event) {
  const parts = [];
  if (event.count !== undefined && countless.includes(event.kind) === false) {
    const noun = inCycles.includes(event.kind) ? 'cycle' : 'point';
    parts.push(`${event.count} ${noun}${event.count === 1 ? '' : 's'}`);
  }
  if (event.amount !== undefined && event.amount !== null) {
    parts.push(`(${Number(event.amount.toPrecision(4))})`);
  }
  if (event.follower !== undefined) {
    parts.push(`follower ${event.follower}`);
  }
  if (event.by !== undefined) {
    parts.push(`by ${event.by}`);
  }
  if (event.reason !== undefined) {
    parts.push(event.reason);
  }
  for (const member of ['name', 'output', 'file', 'message']) {
    if (event[member] !== undefined) {
      parts.push(event[member]);
    }
  }
  if (event.request !== undefined) {
    parts.push(`#${event.request}`);
  }
  if (event.missed !== undefined) {
    parts.push(Object.entries(event.missed).map(([kind, count]) => `${count} ${kind}`).join(', '));
  }
  return parts.join(' ');
}

export class EventList {
  constructor(events, machine) {
    this.machine = machine;
    this.list = byId('event-list');
    this.filter = byId('event-filter');
    this.kept = [];
    this.fresh = [];
    for (const axis of machine.axes) {
      this.filter.append(el('option', {value: axis.key}, axis.name));
    }
    this.filter.addEventListener('change', () => this.fill());
    events.onEvent((event) => this.take(event));
  }

  take(event) {
    if (event.kind === 'begins') {
      return;
    }
    this.kept.push(event);
    if (this.kept.length > 2 * mostShown) {
      this.kept.splice(0, mostShown);
    }
    if (this.fresh.length === 0) {
      requestAnimationFrame(() => this.show());
    }
    this.fresh.push(event);
  }

  isWanted(event) {
    return this.filter.value === '' || event.key === this.filter.value;
  }

  show() {
    const lines = this.fresh.filter((event) => this.isWanted(event)).slice(-mostShown);
    this.fresh = [];
    this.list.prepend(...lines.reverse().map((event) => this.line(event)));
    while (this.list.children.length > mostShown) {
      this.list.lastElementChild.remove();
    }
  }

  fill() {
    this.list.replaceChildren();
    this.fresh = this.kept.slice();
    this.show();
  }

  line(event) {
    const name = this.machine.axisOf.get(event.key)?.name ?? event.key ?? '';
    return el('li', {class: alarming.includes(event.kind) ? 'alarming' : false},
      el('span', {class: 'time'}, seconds(event.machine_ms)),
      el('span', {class: 'sign', 'aria-hidden': 'true'}, signs[event.kind] ?? '·'),
      el('span', {class: 'kind'}, event.kind.replace('_', ' ')),
      el('span', {class: 'what'}, [name, told(event)].filter(Boolean).join('  ')));
  }
}
