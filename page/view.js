// The picture of the machine: canvas, light, camera. Draws when something changed,
// and tells which joint was clicked.

/* global THREE */

import {byId, onScheme, onSize, variable} from './dom.js';
import {onFrame} from './frames.js';
import {loadMeshes} from './shapes.js';
import {extentOf, ghostly, Robot, solid} from './robot.js';
import {readUrdf} from './urdf.js';

const farApart = 0.004;
const viewedFrom = [0.86, -0.42, 0.24];
const room = 1.12;

const trialContext = () => document.createElement('canvas').getContext('webgl');

// Smooth edges cost a processor that draws by itself more than half of its time.
function isDrawnBySoftware() {
  const context = trialContext();
  const extension = context.getExtension('WEBGL_debug_renderer_info');
  return extension !== null && /swiftshader|llvmpipe|software/i.test(context.getParameter(extension.UNMASKED_RENDERER_WEBGL));
}

export class View {
  constructor(onPick) {
    this.onPick = onPick;
    this.canvas = byId('view');
    this.canvas.tabIndex = 0;
    this.renderer = new THREE.WebGLRenderer({canvas: this.canvas, antialias: !isDrawnBySoftware(), alpha: true});
    this.camera = new THREE.PerspectiveCamera(35, 1, 0.01, 100);
    this.camera.up.set(0, 0, 1);
    this.scene = new THREE.Scene();
    this.ghostColour = new THREE.Color();
    this.addLight();
    this.addControls();
    onSize(this.canvas.parentElement, (width, height) => this.resize(width, height));
    onScheme(() => this.colour());
    onFrame(() => this.frame());
  }

  static isPossible() {
    return trialContext() !== null;
  }

  addLight() {
    this.scene.add(new THREE.HemisphereLight(0xffffff, 0x8a8f98, 0.75));
    const sun = new THREE.DirectionalLight(0xffffff, 0.55);
    sun.position.set(2, -1.5, 3);
    this.scene.add(sun);
  }

  addControls() {
    this.controls = new THREE.OrbitControls(this.camera, this.canvas);
    this.controls.enableKeys = false;
    this.controls.addEventListener('change', () => {
      this.isStale = true;
    });
    let down = null;
    this.canvas.addEventListener('pointerdown', (event) => {
      down = [event.clientX, event.clientY];
    });
    this.canvas.addEventListener('pointerup', (event) => {
      if (down && Math.hypot(event.clientX - down[0], event.clientY - down[1]) < 5) {
        this.pick(event);
      }
    });
    this.canvas.addEventListener('keydown', (event) => this.key(event));
    byId('view-reset').addEventListener('click', () => this.reset());
    byId('view-nearer').addEventListener('click', () => this.orbit(0, 0, 0.8));
    byId('view-farther').addEventListener('click', () => this.orbit(0, 0, 1.25));
  }

  key(event) {
    const step = Math.PI / 24;
    const moves = {
      ArrowLeft: [-step, 0, 1], ArrowRight: [step, 0, 1], ArrowUp: [0, -step, 1], ArrowDown: [0, step, 1],
      '+': [0, 0, 0.8], '=': [0, 0, 0.8], '-': [0, 0, 1.25],
    };
    if (moves[event.key]) {
      event.preventDefault();
      this.orbit(...moves[event.key]);
    } else if (event.key === 'Home' || event.key === '0') {
      this.reset();
    }
  }

  orbit(sideways, down, nearer) {
    const offset = this.camera.position.clone().sub(this.controls.target);
    const flat = Math.hypot(offset.x, offset.y);
    const around = Math.atan2(offset.y, offset.x) + sideways;
    const polar = Math.min(Math.PI - 0.05, Math.max(0.05, Math.atan2(flat, offset.z) + down));
    const distance = offset.length() * nearer;
    offset.set(Math.sin(polar) * Math.cos(around), Math.sin(polar) * Math.sin(around), Math.cos(polar));
    this.camera.position.copy(this.controls.target).addScaledVector(offset, distance);
    this.controls.update();
    this.isStale = true;
  }

  async load(door) {
    const model = readUrdf(await door.text('/v1/description'));
    if (model === null) {
      return false;
    }
    const paths = [...model.links.values()].flatMap((link) => link.visuals)
      .filter((visual) => visual.shape.kind === 'mesh').map((visual) => visual.shape.path);
    const meshes = await loadMeshes(door, paths);
    const scale = extentOf(model);
    this.model = model;
    this.robot = new Robot(model, meshes, scale, solid);
    this.ghost = new Robot(model, meshes, scale, ghostly(this.ghostColour));
    this.ghost.object.visible = false;
    this.scene.add(this.robot.object, this.ghost.object);
    this.frameAll();
    this.addFloor();
    return true;
  }

  frameAll() {
    this.robot.object.updateMatrixWorld(true);
    this.box = new THREE.Box3().setFromObject(this.robot.object);
    this.centre = this.box.getCenter(new THREE.Vector3());
    this.radius = Math.max(0.05, this.box.getSize(new THREE.Vector3()).length() / 2);
    this.camera.near = this.radius / 50;
    this.camera.far = this.radius * 100;
    this.reset();
  }

  addFloor() {
    const step = 10 ** Math.floor(Math.log10(this.radius));
    const count = 2 * Math.ceil(2 * this.radius / step);
    this.grid = new THREE.GridHelper(count * step, count);
    this.grid.rotation.x = Math.PI / 2;
    this.grid.position.set(this.centre.x, this.centre.y, this.box.min.z);
    this.grid.material.vertexColors = THREE.NoColors;
    this.scene.add(this.grid);
    this.colour();
  }

  colour() {
    this.ghostColour.set(variable('--ghost'));
    this.grid?.material.color.set(variable('--floor'));
    this.picked = new THREE.Color(variable('--picked'));
    this.ghost?.object.traverse((object) => object.material?.color.copy(this.ghostColour));
    this.highlight(this.selected);
  }

  // So far off in this direction that every corner of the box is in the picture.
  fittingDistance(from) {
    const right = new THREE.Vector3().crossVectors(this.camera.up, from).normalize();
    const up = new THREE.Vector3().crossVectors(from, right);
    const tall = Math.tan(this.camera.fov * Math.PI / 360);
    const wide = tall * this.camera.aspect;
    const half = this.box.getSize(new THREE.Vector3()).multiplyScalar(0.5);
    const distances = [0, 1, 2, 3, 4, 5, 6, 7].map((corner) => {
      const at = half.clone().multiply(new THREE.Vector3(...[1, 2, 4].map((bit) => (corner & bit ? 1 : -1))));
      return at.dot(from) + room * Math.max(Math.abs(at.dot(up)) / tall, Math.abs(at.dot(right)) / wide);
    });
    return Math.max(...distances);
  }

  reset() {
    if (!this.box) {
      return;
    }
    const from = new THREE.Vector3(...viewedFrom).normalize();
    this.controls.target.copy(this.centre);
    this.camera.position.copy(this.centre).addScaledVector(from, this.fittingDistance(from));
    this.controls.update();
    this.isStale = true;
  }

  resize(width, height) {
    this.renderer.setSize(width, height, false);
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
    this.isStale = true;
  }

  // Values by joint name.
  show(measured, commanded) {
    if (!this.robot) {
      return;
    }
    const moved = [this.robot.pose(measured), this.ghost.pose(commanded)];
    if (moved.some(Boolean)) {
      const apart = [...commanded].some(([name, value]) => Math.abs(value - (measured.get(name) ?? value)) > farApart);
      this.ghost.object.visible = apart;
      this.isStale = true;
    }
  }

  pick(event) {
    if (!this.robot) {
      return;
    }
    const area = this.canvas.getBoundingClientRect();
    const at = new THREE.Vector2(2 * (event.clientX - area.left) / area.width - 1,
      1 - 2 * (event.clientY - area.top) / area.height);
    const caster = new THREE.Raycaster();
    caster.setFromCamera(at, this.camera);
    const hit = caster.intersectObject(this.robot.object, true)[0];
    const joint = this.robot.leader(hit?.object.userData.joint ?? null);
    if (joint) {
      this.onPick(joint.name);
    }
  }

  // Shows the links that a joint moves by itself.
  highlight(jointName) {
    this.selected = jointName;
    this.robot?.object.traverse((object) => {
      if (object.userData.colour) {
        const joint = this.robot.leader(object.userData.joint);
        object.material.color.copy(joint && joint.name === jointName ? this.picked : object.userData.colour);
      }
    });
    this.isStale = true;
  }

  frame() {
    if (this.isStale) {
      this.isStale = false;
      this.renderer.render(this.scene, this.camera);
    }
  }
}
