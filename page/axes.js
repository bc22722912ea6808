// The table of axes: target, command, measured, owner, backlog, state, and a slider for each, which
// commands once this page has taken the axis. Which one is selected is known here.

import {byId, el, fixed, seconds, setAttribute, setText} from './dom.js';
import {unitOf} from './machine.js';
import {travelTo} from './travel.js';

const showMs = 80;
const settleMs = 400;

export class Axes {
  constructor(machine, commander) {
    this.machine = machine;
    this.commander = commander;
    this.listeners = [];
    this.shownMs = 0;
    this.rows = machine.axes.map((axis, i) => this.row(axis, i));
    byId('axes-body').append(...this.rows.map((row) => row.element));
    machine.onChange(() => this.showStates());
    machine.onValues(() => this.showValues());
    commander.onChange(() => this.showStates());
  }

  onSelect(listener) {
    this.listeners.push(listener);
  }

  select(name) {
    this.selected = this.machine.axisNamed(name) ?? null;
    for (const row of this.rows) {
      const isIt = row.name === name;
      row.element.classList.toggle('selected', isIt);
      setAttribute(row.button, 'aria-pressed', String(isIt));
      if (isIt) {
        row.element.scrollIntoView({block: 'nearest'});
      }
    }
    this.listeners.forEach((listener) => listener(this.selected));
  }

  row(axis, index) {
    const row = {name: axis.name, index, sentMs: -settleMs};
    row.button = el('button', {class: 'bare name', title: axis.key, 'aria-pressed': 'false', onclick: () => this.select(axis.name)}, axis.name);
    row.slider = this.slider(axis, row);
    row.measuredMark = el('span', {class: 'mark measured', 'aria-hidden': 'true'});
    row.targetMark = el('span', {class: 'mark target', 'aria-hidden': 'true'});
    const range = el('div', {class: 'range'}, row.targetMark, row.measuredMark, row.slider);
    for (const cell of ['target', 'command', 'measured', 'owner', 'backlog']) {
      row[cell] = el('td', {class: cell});
    }
    row.sign = el('span', {class: 'sign', 'aria-hidden': 'true'});
    row.word = el('span');
    row.element = el('tr', {}, el('th', {scope: 'row'}, row.button), el('td', {class: 'slide'}, range),
      row.target, row.command, row.measured, row.owner, row.backlog, el('td', {class: 'state'}, row.sign, row.word));
    return row;
  }

  slider(axis, row) {
    const [low, high] = rangeOf(axis);
    row.low = low;
    row.high = high;
    const slider = el('input', {
      type: 'range', min: low, max: high, step: stepOf(axis, high - low),
      'aria-label': `${axis.name} target`, disabled: true,
      oninput: () => this.slide(row),
      onfocus: () => this.selected?.name !== axis.name && this.select(axis.name),
    });
    return slider;
  }

  // One request at a time: what the slider passed meanwhile is skipped.
  async slide(row) {
    row.sentMs = performance.now();
    if (row.isBusy) {
      return;
    }
    row.isBusy = true;
    let sent = null;
    while (sent !== row.slider.value) {
      sent = row.slider.value;
      const axis = this.machine.axes[row.index];
      await this.commander.command([travelTo(this.machine, axis, Number(sent))]);
      row.sentMs = performance.now();
    }
    row.isBusy = false;
  }

  showStates() {
    for (const row of this.rows) {
      const axis = this.machine.axes[row.index];
      const isMine = this.commander.owns(axis);
      row.slider.disabled = !isMine || axis.held !== null;
      setText(row.owner, isMine ? 'you' : axis.owner ?? '–');
      row.owner.title = axis.owner ?? '';
      row.element.classList.toggle('mine', isMine);
      this.showState(row, axis);
    }
  }

  showState(row, axis) {
    const backlogMs = this.machine.backlogMs(axis);
    const state = axis.held === 'guard' ? ['▲', 'guard'] : axis.held !== null ? ['■', 'held']
      : axis.waiting > 0 || backlogMs > 0 ? ['▶', 'moving'] : ['○', 'rest'];
    setText(row.sign, state[0]);
    setText(row.word, state[1]);
    setAttribute(row.element, 'data-state', state[1]);
    setText(row.backlog, backlogMs > 0 ? `${seconds(backlogMs)} s` : '–');
    setText(row.target, fixed(axis.target, axis.type === 'integer'));
  }

  showValues() {
    const now = performance.now();
    if (now - this.shownMs < showMs) {
      return;
    }
    this.shownMs = now;
    for (const row of this.rows) {
      this.showRow(row, now);
    }
  }

  showRow(row, now) {
    const axis = this.machine.axes[row.index];
    const command = this.machine.command(axis);
    const measured = this.machine.measured(axis);
    setText(row.command, fixed(command, axis.type === 'integer'));
    setText(row.measured, fixed(measured, false));
    if (axis.waiting > 0 || axis.backlog_ms > 0) {
      this.showState(row, axis);
    }
    // A slider in use stays where the hand has it.
    if (command !== null && !row.isBusy && now - row.sentMs > settleMs && !row.slider.matches(':active')) {
      // Under the keyboard's focus it stays at the target, so that steps add up.
      row.slider.value = row.slider === document.activeElement ? axis.target ?? command : command;
    }
    this.mark(row.measuredMark, measured, row);
    this.mark(row.targetMark, axis.target, row);
  }

  mark(mark, value, {low, high}) {
    mark.hidden = value === null || value === undefined;
    if (!mark.hidden) {
      const part = high > low ? Math.min(1, Math.max(0, (value - low) / (high - low))) : 0.5;
      mark.style.setProperty('--at', part.toFixed(4));
    }
  }
}

// Some hundred steps in the range; one that has no width has no steps.
function stepOf(axis, width) {
  return axis.type === 'integer' ? 1 : width > 0 ? 10 ** Math.floor(Math.log10(width / 200)) : 'any';
}

// The limits; where there are none, what is likely.
export function rangeOf(axis) {
  const likely = unitOf(axis) === 'rad' ? 2 * Math.PI : 1;
  return [axis.minimum ?? -likely, axis.maximum ?? likely];
}
