// Motions: files that are dropped or chosen, and those of the machine's folder. Each is checked when
// it is picked; then it may be previewed on the ghost and played.

import {byId, el, seconds, setText} from './dom.js';
import {Refusal} from './door.js';

export class Motions {
  constructor(door, machine, commander, preview) {
    Object.assign(this, {door, machine, commander, preview, picked: null, endsMs: null});
    this.addDrop();
    byId('motion-file').addEventListener('change', (event) => this.bring([...event.target.files]));
    byId('motion-preview').addEventListener('click', () => preview.begin(this.checked.curve, this.checked.duration_ms));
    byId('motion-play').addEventListener('click', () => this.play());
    byId('motion-stop').addEventListener('click', () => this.stop());
    machine.onValues(() => this.showProgress());
    commander.onChange(() => this.enable());
    this.list();
  }

  addDrop() {
    for (const kind of ['dragenter', 'dragover']) {
      window.addEventListener(kind, (event) => {
        event.preventDefault();
        document.body.classList.add('dropping');
      });
    }
    window.addEventListener('dragleave', (event) => event.relatedTarget === null && document.body.classList.remove('dropping'));
    window.addEventListener('drop', (event) => {
      event.preventDefault();
      document.body.classList.remove('dropping');
      this.bring([...event.dataTransfer.files]);
    });
  }

  async list() {
    const {motions} = await this.door.get('/v1/motions').catch(() => ({motions: []}));
    byId('motion-list').replaceChildren(...motions.map(({name}) => el('li', {},
      el('button', {'aria-pressed': 'false', onclick: (event) => this.pick({motions: [name]}, name, event.currentTarget)}, name))));
  }

  // The first file is the motion, unless another one names it.
  async bring(files) {
    if (files.length === 0) {
      return;
    }
    const texts = {};
    for (const file of files) {
      texts[file.name] = await file.text();
    }
    const names = Object.keys(texts);
    const isNamed = (name) => names.some((other) => other !== name && texts[other].includes(name));
    const name = names.find((each) => !isNamed(each)) ?? names[0];
    this.pick({motions: [name], files: texts}, name, null);
  }

  async pick(request, name, button) {
    this.picked = {request, name};
    this.checked = null;
    this.preview.end();
    document.querySelectorAll('#motion-list button').forEach((each) => each.setAttribute('aria-pressed', String(each === button)));
    setText(byId('motion-name'), name);
    this.say('Checking …');
    const {picked} = this;
    try {
      const checked = await this.door.post('/v1/motions', {...request, ...this.commander.credentials(), dry_run: true});
      if (picked === this.picked) {
        this.checked = checked;
        this.showChecked();
      }
    } catch (fault) {
      if (picked === this.picked) {
        this.showFault(fault);
      }
    }
    this.enable();
  }

  axes() {
    return Object.keys(this.checked.curve).map((key) => this.machine.axisOf.get(key)).filter(Boolean);
  }

  showChecked() {
    const {warnings, batches, duration_ms: durationMs} = this.checked;
    const notes = batches.flatMap((batch) => batch.notes.map((message) => ({message})));
    const count = this.axes().length;
    this.say(`Fits: ${count} ${count === 1 ? 'axis' : 'axes'}, ${seconds(durationMs)} s with the approach`
      + `${warnings.length > 0 ? `; ${warnings.length} warning${warnings.length > 1 ? 's' : ''}` : ''}.`, 'good');
    this.showPlaces('warning', [...warnings, ...notes]);
  }

  showFault(fault) {
    if (!(fault instanceof Refusal)) {
      throw fault;
    }
    const {error} = fault;
    if (fault.reason === 'needs_file') {
      this.say(`It names ${error.file}: drop both files together.`, 'bad');
      return;
    }
    const errors = error.errors ?? [error];
    this.say(`Does not fit: ${errors.length} ${errors.length === 1 ? 'error' : 'errors'}.`, 'bad');
    this.showPlaces('error', errors);
  }

  say(sentence, verdict = '') {
    const line = byId('motion-verdict');
    line.className = verdict;
    setText(line, sentence);
    byId('motion-places').replaceChildren();
  }

  showPlaces(kind, faults) {
    byId('motion-places').replaceChildren(...faults.map(({file, line, column, message}) => el('li', {class: kind},
      file ? el('span', {class: 'place'}, [file, line, column].filter((part) => part !== undefined).join(':')) : null,
      el('span', {}, message))));
  }

  enable() {
    byId('motion-preview').disabled = !this.checked;
    byId('motion-play').disabled = !this.checked;
    byId('motion-stop').disabled = this.commander.id === null;
  }

  async play() {
    this.preview.end();
    if (!await this.commander.take(this.axes())) {
      return;
    }
    try {
      const answer = await this.door.post('/v1/motions', {...this.picked.request, ...this.commander.credentials()});
      this.endsMs = answer.ends_ms;
      this.beganMs = answer.machine_ms;
      this.machine.refresh();
    } catch (fault) {
      this.showFault(fault);
    }
  }

  stop() {
    this.endsMs = null;
    byId('motion-progress').hidden = true;
    this.commander.command([{stop: this.commander.axes}]);
  }

  showProgress() {
    if (this.endsMs === null) {
      return;
    }
    const {timeMs} = this.machine;
    const progress = byId('motion-progress');
    progress.hidden = timeMs > this.endsMs || this.commander.id === null;
    progress.value = (timeMs - this.beganMs) / (this.endsMs - this.beganMs);
    if (progress.hidden) {
      this.endsMs = null;
    }
  }
}
