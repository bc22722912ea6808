// The selected axis in detail: what it is, jog for as long as a button is held, go to a value, stop.

import {byId, setText} from './dom.js';
import {bare, unitOf} from './machine.js';
import {rangeOf} from './axes.js';
import {jogTo, setVelocity, travelTo, velocityOf} from './travel.js';

const shown = (limit) => (limit === null ? null : String(Number(limit.toPrecision(4))).replace('-', '−'));
const held = ['jog-down', 'jog-up'];

export class Jog {
  constructor(machine, commander, axes, scope) {
    Object.assign(this, {machine, commander, scope, axis: null, running: null});
    byId('jog-down').addEventListener('contextmenu', (event) => event.preventDefault());
    byId('jog-up').addEventListener('contextmenu', (event) => event.preventDefault());
    held.forEach((id, i) => this.addHeld(byId(id), i === 0 ? -1 : 1));
    byId('jog-velocity').addEventListener('change', (event) => this.changeVelocity(Number(event.target.value)));
    byId('go').addEventListener('submit', (event) => this.go(event));
    byId('axis-stop').addEventListener('click', () => this.commander.stop([this.axis]));
    byId('axis-take').addEventListener('click', () => this.commander.take([this.axis]));
    byId('axis-scope').addEventListener('click', () => this.toggleScope());
    axes.onSelect((axis) => this.show(axis));
    machine.onChange(() => this.enable());
    commander.onChange(() => this.enable());
    scope.onChange((what) => what === 'traces' && this.enable());
  }

  addHeld(button, sign) {
    const begin = () => this.begin(sign);
    const end = () => this.end();
    button.addEventListener('pointerdown', (event) => {
      button.setPointerCapture(event.pointerId);
      begin();
    });
    ['pointerup', 'pointercancel', 'lostpointercapture', 'blur'].forEach((kind) => button.addEventListener(kind, end));
    button.addEventListener('keydown', (event) => event.key === 'Enter' && !event.repeat && begin());
    button.addEventListener('keyup', (event) => event.key === 'Enter' && end());
  }

  begin(sign) {
    if (this.running === null && this.axis && this.commander.owns(this.axis)) {
      const axis = this.axis;
      const moving = this.commander.command([jogTo(this.machine, axis, sign)]);
      this.running = {axis, moving};
    }
  }

  // The stop goes out after the answer to the move, so that it can not overtake it.
  async end() {
    const running = this.running;
    this.running = null;
    if (running !== null && await running.moving !== null) {
      this.commander.stop([running.axis]);
    }
  }

  go(event) {
    event.preventDefault();
    const value = byId('go-value').valueAsNumber;
    if (Number.isFinite(value)) {
      this.commander.command([travelTo(this.machine, this.axis, value)]);
    }
  }

  changeVelocity(velocity) {
    setVelocity(this.axis, velocity);
    byId('jog-velocity').value = velocityOf(this.axis);
  }

  keys() {
    return [this.axis.key, this.axis.sensor].filter(Boolean);
  }

  toggleScope() {
    if (this.scope.has(this.axis.key)) {
      this.scope.remove(this.keys());
    } else {
      this.scope.add(this.keys());
    }
  }

  show(axis) {
    this.end();
    this.axis = axis;
    byId('jog').hidden = axis === null;
    if (axis === null) {
      return;
    }
    const unit = unitOf(axis);
    const [low, high] = rangeOf(axis);
    const limits = axis.minimum === null && axis.maximum === null ? 'no limits'
      : `${shown(axis.minimum) ?? '−∞'} … ${shown(axis.maximum) ?? '∞'} ${unit}`;
    setText(byId('jog-name'), axis.name);
    setText(byId('jog-facts'), [axis.kind, limits,
      axis.maximum_velocity === null ? null : `at most ${shown(axis.maximum_velocity)} ${unit || 'units'}/s`,
      bare(axis.key) === `${axis.name}/Value` ? null : bare(axis.key)].filter(Boolean).join(' · '));
    setText(byId('jog-unit'), `${unit || 'units'}/s`);
    Object.assign(byId('go-value'), {min: low, max: high, value: ''});
    byId('jog-velocity').value = velocityOf(axis);
    this.enable();
  }

  enable() {
    if (this.axis === null) {
      return;
    }
    const axis = this.machine.axisOf.get(this.axis.key);
    const isMine = this.commander.owns(axis);
    const mayMove = isMine && axis.held === null;
    const isStep = axis.interpolation === 'step';
    held.forEach((id) => {
      byId(id).disabled = !mayMove;
    });
    byId('jog-velocity').disabled = isStep;
    byId('go-button').disabled = !mayMove;
    byId('axis-stop').disabled = !isMine;
    byId('axis-take').hidden = isMine;
    setText(byId('axis-scope'), this.scope.has(axis.key) ? 'Off scope' : 'On scope');
  }
}
