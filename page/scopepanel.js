// The controls of the scope: choice of values, legend with read-out, zoom, pause, trigger, download.

import {byId, el, setAttribute, setText} from './dom.js';
import {bare} from './machine.js';
import {ScopeView} from './scopeview.js';

const readMs = 120;

export class ScopePanel {
  constructor(scope, machine) {
    this.scope = scope;
    this.machine = machine;
    this.view = new ScopeView(scope, byId('scope-back'), byId('scope-front'));
    this.legend = byId('legend');
    this.rows = [];
    this.addChoice();
    this.addControls();
    this.addTrigger();
    scope.onChange((what) => this.show(what));
    this.view.onCursor = () => this.read();
    setInterval(() => document.hidden || this.read(), readMs);
    this.show('traces');
  }

  addChoice() {
    const known = new Map(this.machine.numbers.map((key) => [bare(key), key]));
    byId('scope-keys').append(...[...known.keys()].map((name) => el('option', {value: name})));
    const input = byId('scope-add');
    const add = () => {
      if (known.has(input.value)) {
        this.scope.add([known.get(input.value)]);
        input.value = '';
      }
    };
    input.addEventListener('change', add);
    input.addEventListener('input', (event) => event.inputType === 'insertReplacementText' && add());
  }

  addControls() {
    const on = (id, action) => byId(id).addEventListener('click', action);
    on('scope-lanes', () => {
      this.view.isInLanes = !this.view.isInLanes;
      setAttribute(byId('scope-lanes'), 'aria-pressed', String(this.view.isInLanes));
      this.view.touch();
    });
    on('scope-in', () => this.scope.zoom(0.5));
    on('scope-out', () => this.scope.zoom(2));
    on('scope-pause', () => this.scope.pause(!this.scope.isPaused));
    on('scope-clear', () => this.scope.remove(this.scope.traces.map((trace) => trace.key)));
    on('scope-csv', () => this.download());
  }

  addTrigger() {
    const [edge, key, level] = ['trigger-edge', 'trigger-key', 'trigger-level'].map(byId);
    const change = () => this.scope.setTrigger({edge: edge.value, key: key.value, level: Number(level.value) || 0});
    [edge, key, level].forEach((input) => input.addEventListener('change', change));
  }

  download() {
    const address = URL.createObjectURL(new Blob([this.scope.csv()], {type: 'text/csv'}));
    el('a', {href: address, download: `scope-${Math.round(this.scope.window().toMs)}.csv`}).click();
    setTimeout(() => URL.revokeObjectURL(address), 10000);
  }

  show(what) {
    if (what === 'traces') {
      this.fill();
    }
    if (what !== 'samples') {
      const {spanMs, isPaused, trigger} = this.scope;
      setText(byId('scope-span'), `${Number((spanMs / 1000).toPrecision(3))} s`);
      setText(byId('scope-pause'), isPaused ? 'Live' : 'Pause');
      setAttribute(byId('scope-pause'), 'aria-pressed', String(isPaused));
      setText(byId('trigger-summary'), trigger.edge === 'off' ? 'Trigger' : `Trigger: ${trigger.edge}`);
    }
  }

  fill() {
    this.rows = this.scope.traces.map((trace, i) => this.row(trace, i));
    this.legend.replaceChildren(...this.rows.map((row) => row.element));
    byId('trigger-key').replaceChildren(
      ...this.scope.traces.map((trace) => el('option', {value: trace.key}, `${trace.name} ${trace.tag}`)));
    byId('trigger-key').value = this.scope.trigger.key ?? '';
    byId('scope-empty').hidden = this.rows.length > 0;
    this.read();
  }

  row(trace, index) {
    const value = el('span', {class: 'value'});
    const sign = el('span', {class: `swatch hue-${this.view.hue(trace.group) + 1}${trace.isDashed ? ' dashed' : ''}`, 'aria-hidden': 'true'});
    const remove = el('button', {
      class: 'bare', title: 'Take off the scope', 'aria-label': `Take ${trace.name} ${trace.tag} off the scope`,
      onclick: () => this.scope.remove([trace.key]),
    }, '×');
    const element = el('li', {}, el('span', {class: 'number'}, String(index + 1)), sign,
      el('span', {class: 'name', title: trace.key}, trace.name), el('span', {class: 'tag'}, trace.tag), value, remove);
    return {trace, value, element};
  }

  read() {
    for (const row of this.rows) {
      setText(row.value, this.view.reading(row.trace));
    }
  }
}
