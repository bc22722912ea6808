// Puts the page together: finds the machine, joins its parts, shows the state of the connection.

import {Axes} from './axes.js';
import {Commander} from './commander.js';
import {byId, setAttribute, setText} from './dom.js';
import {Door} from './door.js';
import {EventList, Events} from './events.js';
import {Hold} from './hold.js';
import {Jog} from './jog.js';
import {Machine} from './machine.js';
import {Motions} from './motions.js';
import {Preview} from './preview.js';
import {Scope} from './scope.js';
import {ScopePanel} from './scopepanel.js';
import {View} from './view.js';

const retryMs = 1000;
const healthMs = 1000;
const atFirst = 4;

const say = (sentence) => setText(byId('said'), sentence);
const door = new Door();
const hold = new Hold(door, say);

function showConnection(state, machine) {
  const words = {open: 'connected', lost: 'machine gone', locked: 'no access'};
  setAttribute(document.body, 'data-door', state);
  setText(byId('connection'), words[state]);
  byId('locked').hidden = state !== 'locked';
  if (state === 'open') {
    machine?.refresh();
  }
}

async function found() {
  for (;;) {
    try {
      return await Machine.found(door);
    } catch {
      await new Promise((resolve) => setTimeout(resolve, retryMs));
    }
  }
}

async function showView(machine, axes, preview) {
  if (!machine.description.has_description) {
    setText(byId('view-note'), 'This machine has no URDF to be drawn from.');
    return;
  }
  if (!View.isPossible()) {
    setText(byId('view-note'), 'This browser has no WebGL: no picture.');
    return;
  }
  const view = new View((name) => {
    const axis = machine.axes.find((each) => (each.joint ?? each.name) === name);
    if (axis) {
      axes.select(axis.name);
    }
  });
  const pose = (valueOf) => new Map(machine.axes.map((axis) => [axis.joint ?? axis.name, valueOf(axis) ?? NaN]));
  const show = () => view.show(pose((axis) => machine.measured(axis) ?? machine.command(axis)),
    pose((axis) => preview.valueOf(axis) ?? machine.command(axis)));
  const highlight = (axis) => view.highlight(axis?.joint ?? axis?.name);
  await view.load(door);
  machine.onValues(show);
  preview.onMove(show);
  axes.onSelect(highlight);
  highlight(axes.selected);
}

function showCommander(machine, commander) {
  const take = byId('take');
  take.addEventListener('click', () => (commander.id === null ? commander.take(machine.axes) : commander.giveBack()));
  byId('stop-all').addEventListener('click', () => commander.command([{stop: commander.axes}]));
  commander.onChange((sentence) => {
    const count = commander.axes.length;
    setText(take, count === 0 ? 'Take all' : 'Give back');
    setText(byId('commander'), count === 0 ? 'Watching only' : `You are ${commander.name}, with ${count} of ${machine.axes.length} axes`);
    byId('stop-all').disabled = count === 0;
    say(sentence);
  });
}

async function showHealth() {
  if (!document.hidden) {
    const health = await door.get('/v1/health').catch(() => null);
    if (health !== null) {
      setText(byId('health'), `latency p99 ${Math.round(health.latency_ns.p99 / 1000)} µs · ${health.overruns} overruns`);
    }
  }
}

function showClock(machine) {
  setText(byId('clock'), `${(machine.timeMs / 1000).toFixed(1)} s`);
}

async function main() {
  let machine = null;
  door.onState((state) => showConnection(state, machine));
  machine = await found();
  document.title = `${machine.description.name} – torvex`;
  setText(byId('machine'), machine.description.name);
  setText(byId('cycle'), `cycle ${machine.description.cycle_ms} ms`);
  hold.follow(machine);
  const events = new Events(door);
  new EventList(events, machine);
  const commander = new Commander(door, machine, events);
  showCommander(machine, commander);
  const axes = new Axes(machine, commander);
  const scope = new Scope(door, machine);
  new ScopePanel(scope, machine);
  new Jog(machine, commander, axes, scope);
  const preview = new Preview(machine);
  new Motions(door, machine, commander, preview);
  machine.onValues(() => showClock(machine));
  setInterval(showHealth, healthMs);
  events.start();
  machine.start();
  showView(machine, axes, preview);
  scope.add(machine.axes.slice(0, atFirst).flatMap((axis) => [axis.key, axis.sensor]).filter(Boolean));
  axes.select(machine.axes[0]?.name);
}

main();
