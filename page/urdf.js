// Reads a URDF into links and joints: names, origins, shapes, and who follows whom. What is missing or
// odd gets its default: the machine has judged the file, here it is only drawn.

const numbers = (text, fallback) => {
  const read = (text ?? '').trim().split(/\s+/).map(Number);
  return read.length === fallback.length && read.every(Number.isFinite) ? read : fallback;
};

const child = (element, tag) => [...(element?.children ?? [])].find((each) => each.tagName === tag);
const children = (element, tag) => [...element.children].filter((each) => each.tagName === tag);

function originOf(element) {
  const origin = child(element, 'origin');
  return {
    xyz: numbers(origin?.getAttribute('xyz'), [0, 0, 0]),
    rpy: numbers(origin?.getAttribute('rpy'), [0, 0, 0]),
  };
}

function colourOf(material) {
  const rgba = child(material, 'color')?.getAttribute('rgba');
  return rgba === undefined || rgba === null ? null : numbers(rgba, [0.7, 0.7, 0.7, 1]);
}

// package://PACKAGE/PATH, however many slashes lead it, as PACKAGE/PATH; else null.
export function meshPath(filename) {
  const found = /^package:\/\/\/*(.+)$/.exec(filename ?? '');
  return found === null ? null : found[1];
}

function shapeOf(geometry) {
  const shape = geometry?.firstElementChild;
  const length = (name) => numbers(shape.getAttribute(name), [0.05])[0];
  switch (shape?.tagName) {
    case 'box':
      return {kind: 'box', size: numbers(shape.getAttribute('size'), [0.05, 0.05, 0.05])};
    case 'cylinder':
      return {kind: 'cylinder', radius: length('radius'), length: length('length')};
    case 'sphere':
      return {kind: 'sphere', radius: length('radius')};
    case 'mesh':
      return {
        kind: 'mesh',
        path: meshPath(shape.getAttribute('filename')),
        scale: numbers(shape.getAttribute('scale'), [1, 1, 1]),
      };
    default:
      return null;
  }
}

function linkOf(element, colours) {
  const visuals = children(element, 'visual').map((visual) => {
    const material = child(visual, 'material');
    return {
      origin: originOf(visual),
      shape: shapeOf(child(visual, 'geometry')),
      colour: colourOf(material) ?? colours.get(material?.getAttribute('name')) ?? null,
    };
  });
  return {name: element.getAttribute('name'), visuals: visuals.filter((visual) => visual.shape !== null), joints: []};
}

function jointOf(element) {
  const mimic = child(element, 'mimic');
  const number = (name, fallback) => numbers(mimic.getAttribute(name), [fallback])[0];
  return {
    name: element.getAttribute('name'),
    type: element.getAttribute('type'),
    origin: originOf(element),
    axis: numbers(child(element, 'axis')?.getAttribute('xyz'), [1, 0, 0]),
    parent: child(element, 'parent')?.getAttribute('link'),
    child: child(element, 'child')?.getAttribute('link'),
    mimic: mimic ? {joint: mimic.getAttribute('joint'), multiplier: number('multiplier', 1), offset: number('offset', 0)} : null,
  };
}

// {links: by name, joints: by name, root: the link that no joint moves}; null where there is no robot.
export function readUrdf(text) {
  const robot = new DOMParser().parseFromString(text, 'application/xml').documentElement;
  if (robot?.tagName !== 'robot') {
    return null;
  }
  const colours = new Map([...robot.querySelectorAll('material')].filter(colourOf)
    .map((each) => [each.getAttribute('name'), colourOf(each)]));
  const links = new Map(children(robot, 'link').map((each) => [each.getAttribute('name'), linkOf(each, colours)]));
  const joints = new Map();
  const moved = new Set();
  for (const joint of children(robot, 'joint').map(jointOf)) {
    if (links.has(joint.parent) && links.has(joint.child) && !moved.has(joint.child)) {
      joints.set(joint.name, joint);
      links.get(joint.parent).joints.push(joint);
      moved.add(joint.child);
    }
  }
  const root = [...links.values()].find((link) => !moved.has(link.name));
  return root === undefined ? null : {links, joints, root};
}
