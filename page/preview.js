// Shows a motion on the ghost, without moving anything: its curve, played or scrubbed.

import {byId, setText} from './dom.js';

export class Preview {
  constructor(machine) {
    this.machine = machine;
    this.curve = null;
    this.listener = () => {};
    this.slider = byId('preview-time');
    this.slider.addEventListener('input', () => {
      this.isPlaying = false;
      this.seek(Number(this.slider.value));
    });
    byId('preview-end').addEventListener('click', () => this.end());
  }

  // Called whenever the ghost is to be shown elsewhere.
  onMove(listener) {
    this.listener = listener;
  }

  // `curve`: by key, pairs of milliseconds and value.
  begin(curve, durationMs) {
    this.curve = curve;
    this.durationMs = durationMs;
    this.slider.max = durationMs;
    byId('preview').hidden = false;
    this.isPlaying = true;
    this.sinceMs = performance.now();
    this.seek(0);
    requestAnimationFrame(() => this.play());
  }

  play() {
    if (this.curve === null || !this.isPlaying) {
      return;
    }
    const elapsed = performance.now() - this.sinceMs;
    this.seek(Math.min(this.durationMs, elapsed));
    this.isPlaying = elapsed < this.durationMs;
    requestAnimationFrame(() => this.play());
  }

  seek(timeMs) {
    this.timeMs = timeMs;
    this.slider.value = timeMs;
    setText(byId('preview-clock'), `${(timeMs / 1000).toFixed(1)} of ${(this.durationMs / 1000).toFixed(1)} s`);
    this.listener();
  }

  end() {
    this.curve = null;
    byId('preview').hidden = true;
    this.listener();
  }

  // The value of an axis in the preview; null without one.
  valueOf(axis) {
    const points = this.curve?.[axis.key];
    return points?.length > 0 ? between(points, this.timeMs) : null;
  }
}

function between(points, timeMs) {
  let low = 0;
  let high = points.length - 1;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (points[middle][0] < timeMs) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  const [time, value] = points[low];
  if (low === 0 || timeMs >= time) {
    return value;
  }
  const [earlier, from] = points[low - 1];
  return from + (value - from) * (timeMs - earlier) / (time - earlier);
}
