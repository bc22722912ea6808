// How this page moves an axis: to a value, at the velocity that is set for it, in place of what waits.

const share = 0.3;
const plainVelocity = 0.5;
// What was commanded may be a few cycles older than it looks from here.
const marginS = 0.06;
const farS = 600;

const chosen = new Map();

export function velocityOf(axis) {
  return chosen.get(axis.key) ?? Number((axis.maximum_velocity === null ? plainVelocity : share * axis.maximum_velocity).toPrecision(2));
}

export function setVelocity(axis, velocity) {
  const most = axis.maximum_velocity ?? Infinity;
  chosen.set(axis.key, Math.min(most, velocity > 0 ? velocity : velocityOf(axis)));
}

export function travelTo(machine, axis, value) {
  const distance = Math.abs(value - (machine.command(axis) ?? value));
  const time = axis.interpolation === 'step' ? 0 : marginS + distance / velocityOf(axis);
  return {mode: 'replace', key: axis.key, items: [{time: Number(time.toFixed(3)), value}]};
}

// As far as it goes in one direction; without a limit, ten minutes.
export function jogTo(machine, axis, sign) {
  const limit = sign > 0 ? axis.maximum : axis.minimum;
  return travelTo(machine, axis, limit ?? machine.command(axis) + sign * velocityOf(axis) * farS);
}
