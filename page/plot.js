// Draws traces of a ring: for each pixel column one run from its minimum to its maximum, straight into
// the pixels of a canvas. What a run covers of its first and last pixel is their opacity.

const dashOn = 7;
const dashAll = 11;

export class Plot {
  constructor(canvas) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d', {willReadFrequently: true});
    this.resize(1, 1, 1);
  }

  resize(width, height, ratio) {
    this.canvas.width = this.width = width;
    this.canvas.height = this.height = height;
    this.half = Math.max(0.6, 0.7 * ratio);
    this.image = this.context.createImageData(width, height);
    this.pixels = new Uint32Array(this.image.data.buffer);
    this.columns = new Float64Array(width + 1);
  }

  // Columns of `columnMs` from a multiple of it on: they keep their samples while the picture moves.
  begin(ring, fromMs, columnMs) {
    this.ring = ring;
    this.columnMs = columnMs;
    this.firstColumn = Math.floor(fromMs / columnMs);
    for (let column = 0; column <= this.width; ++column) {
      this.columns[column] = ring.at((this.firstColumn + column) * columnMs);
    }
    this.pixels.fill(0);
  }

  // `scale`: the row of 0, and rows for each unit (upwards negative); only between two rows.
  trace(trace, rgb, isDashed, {zero, unit, top, bottom}) {
    const {ring, columns, width, half} = this;
    let left = ring.valueAt(trace, this.firstColumn * this.columnMs, columns[0]);
    for (let column = 0; column < width; ++column) {
      const right = ring.valueAt(trace, (this.firstColumn + column + 1) * this.columnMs, columns[column + 1]);
      ring.extent(trace, columns[column], columns[column + 1]);
      let {low, high} = ring;
      low = Math.min(low, left === left ? left : low, right === right ? right : low);
      high = Math.max(high, left === left ? left : high, right === right ? right : high);
      left = right;
      if (low <= high && !(isDashed && (this.firstColumn + column) % dashAll >= dashOn)) {
        this.run(column, Math.max(top, zero + unit * high - half), Math.min(bottom, zero + unit * low + half), rgb);
      }
    }
  }

  run(column, top, bottom, rgb) {
    const {pixels, width} = this;
    const last = Math.min(this.height, Math.ceil(bottom));
    for (let row = Math.max(0, Math.floor(top)); row < last; ++row) {
      const covered = Math.min(row + 1, bottom) - Math.max(row, top);
      const index = row * width + column;
      if (covered > 0.5 || pixels[index] === 0) {
        pixels[index] = rgb | (Math.max(0, Math.min(255, Math.round(255 * covered))) << 24);
      }
    }
  }

  end() {
    this.context.putImageData(this.image, 0, 0);
  }
}

// '#rrggbb' as the lower three bytes of a pixel.
export function pixelOf(colour) {
  const value = parseInt(colour.slice(1), 16);
  return ((value & 0xff) << 16) | (value & 0xff00) | (value >> 16);
}

// A step of 1, 2 or 5 such that about `count` of them fit.
export function niceStep(span, count) {
  const raw = span / Math.max(1, count);
  const power = 10 ** Math.floor(Math.log10(raw));
  return power * ([1, 2, 5].find((each) => each * power >= raw) ?? 10);
}

// The limits of a scale that holds these values, on steps, so that it moves seldom.
export function niceRange(low, high) {
  if (!(low <= high)) {
    return [-1, 1];
  }
  const slack = Math.max(high - low, 0.01 * Math.max(1, Math.abs(high)));
  const step = niceStep(slack, 8);
  return [Math.floor((low - 0.04 * slack) / step) * step, Math.ceil((high + 0.04 * slack) / step) * step];
}
