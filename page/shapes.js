// Makes three.js geometry of URDF shapes, and of what stands in where a mesh is missing: boxes as
// bones between joints, and a cylinder at each joint.

/* global THREE */

const sides = 28;
const finestEdges = 20000;

function quaternionOf([roll, pitch, yaw]) {
  return new THREE.Quaternion().setFromEuler(new THREE.Euler(roll, pitch, yaw, 'ZYX'));
}

export function place(object, origin) {
  object.position.fromArray(origin.xyz);
  object.quaternion.copy(quaternionOf(origin.rpy));
  return object;
}

// A URDF cylinder stands along z, one of three.js along y.
function upright(radius, length) {
  return new THREE.CylinderBufferGeometry(radius, radius, length, sides).rotateX(Math.PI / 2);
}

// Of a primitive, or of a mesh that `meshes` has; else null.
export function geometryOf(shape, meshes) {
  switch (shape.kind) {
    case 'box':
      return new THREE.BoxBufferGeometry(...shape.size);
    case 'cylinder':
      return upright(shape.radius, shape.length);
    case 'sphere':
      return new THREE.SphereBufferGeometry(shape.radius, sides, sides / 2);
    default: {
      const mesh = meshes.get(shape.path);
      return mesh ? mesh.clone().scale(...shape.scale) : null;
    }
  }
}

// A box from the origin to a point.
export function bone(xyz, width) {
  const end = new THREE.Vector3(...xyz);
  const length = end.length();
  const geometry = new THREE.BoxBufferGeometry(width, width, length).translate(0, 0, length / 2);
  const turn = new THREE.Quaternion().setFromUnitVectors(new THREE.Vector3(0, 0, 1), end.normalize());
  return geometry.applyMatrix(new THREE.Matrix4().makeRotationFromQuaternion(turn));
}

export function hub(axis, radius) {
  const turn = new THREE.Quaternion().setFromUnitVectors(new THREE.Vector3(0, 0, 1), axis);
  return upright(radius, 2.4 * radius).applyMatrix(new THREE.Matrix4().makeRotationFromQuaternion(turn));
}

// The lines in which a shape is recognised; of very fine meshes none.
export function edgesOf(geometry) {
  const count = geometry.attributes.position.count;
  return count > finestEdges ? null : new THREE.EdgesGeometry(geometry, 30);
}

// STL files by their paths, PACKAGE/PATH: those that the machine has. One that cannot be read counts
// as missing.
export async function loadMeshes(door, paths) {
  const loader = new THREE.STLLoader();
  const meshes = new Map();
  const {meshes: present} = await door.get('/v1/meshes').catch(() => ({meshes: []}));
  const wanted = present.filter((path) => /\.stl$/i.test(path) && paths.includes(path));
  await Promise.all(wanted.map(async (path) => {
    try {
      const address = path.split('/').map(encodeURIComponent).join('/');
      const data = await (await door.fetched(`/v1/meshes/${address}`, {})).arrayBuffer();
      const geometry = loader.parse(data);
      geometry.computeVertexNormals();  // those of the file may be zero
      meshes.set(path, geometry);
    } catch {
      meshes.delete(path);
    }
  }));
  return meshes;
}
