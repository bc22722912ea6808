// The last minute of values, each cycle of it, in typed arrays whose size never changes. Above the
// samples of each trace stand blocks of 8, 64, 512, 4096 of them with minimum and maximum, kept as
// samples come, so that a column of the picture costs a few looks, however many cycles it covers.

const shift = 3;
const levels = 4;
const coarsest = 1 << (shift * levels);

export class Trace {
  constructor(capacity) {
    this.values = new Float32Array(capacity).fill(NaN);
    this.lows = [];
    this.highs = [];
    for (let level = 1; level <= levels; ++level) {
      this.lows.push(new Float32Array(capacity >> (shift * level)).fill(Infinity));
      this.highs.push(new Float32Array(capacity >> (shift * level)).fill(-Infinity));
    }
  }

  set(slot, value) {
    this.values[slot] = value;
    for (let level = 0; level < levels; ++level) {
      const bits = shift * (level + 1);
      const block = slot >> bits;
      const lows = this.lows[level];
      const highs = this.highs[level];
      if ((slot & ((1 << bits) - 1)) === 0) {
        lows[block] = Infinity;
        highs[block] = -Infinity;
      }
      if (value < lows[block]) {
        lows[block] = value;
      }
      if (value > highs[block]) {
        highs[block] = value;
      }
    }
  }
}

export class Ring {
  constructor(cycleMs, keptMs = 60000) {
    this.keptMs = keptMs;
    this.capacity = 1 << Math.ceil(Math.log2(keptMs / cycleMs + coarsest + 1));
    this.mask = this.capacity - 1;
    this.times = new Float64Array(this.capacity);
    this.traces = new Map();
    this.end = 0;
    this.gapMs = 3.5 * cycleMs;
    this.low = 0;
    this.high = 0;
  }

  // Samples have numbers from 0 on; those from `first` up to `end` are kept.
  get first() {
    return Math.max(0, this.end - this.capacity + coarsest);
  }

  get lastMs() {
    return this.end > 0 ? this.times[(this.end - 1) & this.mask] : NaN;
  }

  add(key) {
    if (!this.traces.has(key)) {
      this.traces.set(key, new Trace(this.capacity));
    }
  }

  remove(key) {
    this.traces.delete(key);
  }

  // A row for each cycle; cycles that are there already are left out, and a gap is kept as one.
  append(keys, timesMs, rows) {
    const traces = keys.map((key) => this.traces.get(key));
    for (let row = 0; row < rows.length; ++row) {
      if (this.end > 0 && timesMs[row] <= this.lastMs) {
        continue;
      }
      if (timesMs[row] - this.lastMs > this.gapMs) {
        this.put(traces, timesMs[row], null);
      }
      this.put(traces, timesMs[row], rows[row]);
    }
  }

  put(traces, timeMs, row) {
    const slot = this.end & this.mask;
    this.times[slot] = timeMs;
    for (const trace of this.traces.values()) {
      trace.set(slot, NaN);
    }
    for (let i = 0; row !== null && i < traces.length; ++i) {
      traces[i]?.set(slot, row[i] ?? NaN);
    }
    ++this.end;
  }

  timeAt(number) {
    return this.times[number & this.mask];
  }

  // The number of the first sample at this time or after it.
  at(timeMs) {
    let low = this.first;
    let high = this.end;
    while (low < high) {
      const middle = (low + high) >>> 1;
      if (this.times[middle & this.mask] < timeMs) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  // Between two samples on the line; NaN where there is none.
  valueAt(trace, timeMs, next = this.at(timeMs)) {
    if (next >= this.end || next < this.first) {
      return NaN;
    }
    const slot = next & this.mask;
    if (this.times[slot] === timeMs || next === this.first) {
      return this.times[slot] === timeMs ? trace.values[slot] : NaN;
    }
    const before = (next - 1) & this.mask;
    const part = (timeMs - this.times[before]) / (this.times[slot] - this.times[before]);
    return trace.values[before] + part * (trace.values[slot] - trace.values[before]);
  }

  // Leaves the extent of samples from `begin` up to `end` in `low` and `high`, which are infinite
  // where there are none.
  extent(trace, begin, end) {
    let low = Infinity;
    let high = -Infinity;
    let number = Math.max(begin, this.first);
    while (number < end) {
      let level = 0;
      while (level < levels && (number & ((1 << (shift * (level + 1))) - 1)) === 0 &&
             number + (1 << (shift * (level + 1))) <= end) {
        ++level;
      }
      const slot = number & this.mask;
      const least = level === 0 ? trace.values[slot] : trace.lows[level - 1][slot >> (shift * level)];
      const most = level === 0 ? least : trace.highs[level - 1][slot >> (shift * level)];
      low = least < low ? least : low;
      high = most > high ? most : high;
      number += 1 << (shift * level);
    }
    this.low = low;
    this.high = high;
  }
}
