// Hold: one large button and the space bar, for everyone, always; release asks first. In text fields
// the space bar types; focused buttons take Enter, so that a space anywhere else means hold.

import {byId, setText} from './dom.js';

const typing = 'input[type=text], input[type=search], textarea';

export class Hold {
  constructor(door, say) {
    this.door = door;
    this.say = say;
    this.button = byId('hold');
    this.release = byId('release');
    this.dialog = byId('release-dialog');
    this.button.addEventListener('click', () => this.hold());
    this.release.addEventListener('click', () => this.dialog.showModal());
    byId('release-yes').addEventListener('click', () => this.letGo());
    byId('release-no').addEventListener('click', () => this.dialog.close());
    for (const kind of ['keydown', 'keyup']) {
      window.addEventListener(kind, (event) => this.key(event), true);
    }
  }

  key(event) {
    if (event.key !== ' ' || event.ctrlKey || event.altKey || event.metaKey || event.target.matches?.(typing)) {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
    if (event.type === 'keydown' && !event.repeat) {
      this.hold();
    }
  }

  async hold() {
    try {
      await this.door.post('/v1/hold');
    } catch (fault) {
      this.say(`Hold failed: ${fault.message}`);
    }
    this.machine?.refresh();
  }

  async letGo() {
    this.dialog.close();
    try {
      await this.door.post('/v1/release');
    } catch (fault) {
      this.say(`Release failed: ${fault.message}`);
    }
    this.machine?.refresh();
  }

  // From now on shows what this machine holds. Before, it holds all the same.
  follow(machine) {
    this.machine = machine;
    machine.onChange(() => {
      const held = machine.axes.filter((axis) => axis.held !== null).length;
      document.body.classList.toggle('held', held > 0);
      this.release.hidden = held === 0;
      setText(this.button.querySelector('.word'), held === machine.axes.length && held > 0 ? 'HELD' : 'HOLD');
      setText(byId('hold-state'), held === 0 ? ''
        : held === machine.axes.length ? 'All axes are held.' : `${held} of ${machine.axes.length} axes are held.`);
    });
  }
}
