// The body of a machine: three.js groups, one for each link, moved by the values of joints. The
// machine is built twice from one URDF: as it is measured, and as a ghost as it is commanded.

/* global THREE */

import {bone, edgesOf, geometryOf, hub, place} from './shapes.js';

const plain = [0.72, 0.74, 0.76, 1];
const boneColour = [0.55, 0.6, 0.66, 1];
const hubColour = [0.25, 0.3, 0.36, 1];
const deepest = 16;

// A look gives the objects that show a geometry in a colour.
export function solid([red, green, blue, alpha]) {
  const material = new THREE.MeshLambertMaterial({
    color: new THREE.Color(red, green, blue), transparent: alpha < 1, opacity: alpha,
  });
  return (geometry) => {
    const mesh = new THREE.Mesh(geometry, material.clone());
    mesh.userData.colour = material.color;
    return [mesh];
  };
}

export function ghostly(colour) {
  const skin = new THREE.MeshBasicMaterial({
    color: colour, transparent: true, opacity: 0.16, depthWrite: false,
    polygonOffset: true, polygonOffsetFactor: 2, polygonOffsetUnits: 2,
  });
  const lines = new THREE.LineBasicMaterial({color: colour, transparent: true, opacity: 0.9});
  return () => (geometry) => {
    const edges = edgesOf(geometry);
    return [new THREE.Mesh(geometry, skin), ...(edges ? [new THREE.LineSegments(edges, lines)] : [])];
  };
}

export class Robot {
  // `scale` is how large the machine is; `look` makes of a colour what makes objects of geometry.
  constructor(model, meshes, scale, look) {
    this.model = model;
    this.meshes = meshes;
    this.scale = scale;
    this.look = look;
    this.moving = new Map();
    this.values = new Map();
    this.object = this.linkObject(model.root, null);
    this.leaders = [...model.joints.values()].filter((joint) => joint.mimic);
  }

  linkObject(link, joint) {
    const group = new THREE.Group();
    const shown = link.visuals.filter((visual) => this.addVisual(group, visual, joint));
    if (shown.length < link.visuals.length || this.isSkeleton(link)) {
      this.addBones(group, link, joint, shown.length === 0);
    }
    for (const next of link.joints) {
      group.add(this.jointObject(next));
    }
    return group;
  }

  // Links without any visual in a machine where none has one.
  isSkeleton(link) {
    this.isBare ??= [...this.model.links.values()].every((each) => each.visuals.length === 0);
    return this.isBare && link.visuals.length === 0;
  }

  addVisual(group, visual, joint) {
    const geometry = geometryOf(visual.shape, this.meshes);
    if (geometry !== null) {
      const holder = place(new THREE.Group(), visual.origin);
      this.add(holder, geometry, visual.colour ?? plain, joint);
      group.add(holder);
    }
    return geometry !== null;
  }

  addBones(group, link, joint, isAlone) {
    const thin = 0.01 * this.scale;
    const lengthOf = (each) => Math.hypot(...each.origin.xyz);
    for (const next of link.joints.filter((each) => lengthOf(each) > thin)) {
      this.add(group, bone(next.origin.xyz, Math.min(0.032 * this.scale, 0.4 * lengthOf(next))), boneColour, joint);
    }
    if (isAlone && joint !== null && joint.type !== 'fixed') {
      const longest = Math.max(thin, ...[joint, ...link.joints].map(lengthOf));
      this.add(group, hub(axisOf(joint), Math.min(0.022 * this.scale, 0.3 * longest)), hubColour, joint);
    }
  }

  add(group, geometry, colour, joint) {
    for (const object of this.look(colour)(geometry)) {
      object.userData.joint = joint;
      group.add(object);
    }
  }

  jointObject(joint) {
    const origin = place(new THREE.Group(), joint.origin);
    const moving = this.linkObject(this.model.links.get(joint.child), joint.type === 'fixed' ? this.above(joint) : joint);
    origin.add(moving);
    if (joint.type !== 'fixed') {
      this.moving.set(joint.name, {object: moving, axis: axisOf(joint), slides: joint.type === 'prismatic'});
    }
    return origin;
  }

  // The joint that moves the link which a fixed joint hangs on.
  above(joint) {
    for (let name = joint.parent; ;) {
      const mover = [...this.model.joints.values()].find((each) => each.child === name);
      if (mover === undefined || mover.type !== 'fixed') {
        return mover ?? null;
      }
      name = mover.parent;
    }
  }

  // Moves to values by joint name, followers included. Whether anything moved.
  pose(values) {
    let moved = false;
    for (const [name, mover] of this.moving) {
      const value = this.valueOf(name, values, 0);
      if (Number.isFinite(value) && Math.abs(value - (this.values.get(name) ?? 0)) > 1e-5) {
        this.values.set(name, value);
        moved = true;
        if (mover.slides) {
          mover.object.position.copy(mover.axis).multiplyScalar(value);
        } else {
          mover.object.quaternion.setFromAxisAngle(mover.axis, value);
        }
      }
    }
    return moved;
  }

  valueOf(name, values, depth) {
    const mimic = this.model.joints.get(name)?.mimic;
    return mimic && depth < deepest
      ? mimic.multiplier * this.valueOf(mimic.joint, values, depth + 1) + mimic.offset
      : values.get(name) ?? NaN;
  }

  // The joint that is commanded where this one follows.
  leader(joint, depth = 0) {
    const next = joint?.mimic ? this.model.joints.get(joint.mimic.joint) : null;
    return next && depth < deepest ? this.leader(next, depth + 1) : joint;
  }
}

function axisOf(joint) {
  const axis = new THREE.Vector3(...joint.axis);
  return axis.length() > 0 ? axis.normalize() : new THREE.Vector3(1, 0, 0);
}

// How far the joints of a machine lie apart, for widths of bones.
export function extentOf(model) {
  const box = new THREE.Box3();
  const visit = (link, matrix) => {
    box.expandByPoint(new THREE.Vector3().setFromMatrixPosition(matrix));
    for (const joint of link.joints) {
      const origin = place(new THREE.Object3D(), joint.origin);
      origin.updateMatrix();
      visit(model.links.get(joint.child), matrix.clone().multiply(origin.matrix));
    }
  };
  visit(model.root, new THREE.Matrix4());
  return box.getSize(new THREE.Vector3()).length() || 1;
}
