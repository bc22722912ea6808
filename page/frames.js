// One beat for all that is drawn, at about 30 a second: table, picture and scope change together, so
// that the browser composes the page once for all of them.

const shortestMs = 20;
const drawn = [];
let latestMs = 0;

function beat(nowMs) {
  requestAnimationFrame(beat);
  if (nowMs - latestMs >= shortestMs) {
    latestMs = nowMs;
    drawn.forEach((draw) => draw(nowMs));
  }
}

// Calls back in each beat, in the order of the calls to this.
export function onFrame(draw) {
  if (drawn.push(draw) === 1) {
    requestAnimationFrame(beat);
  }
}
