#!/usr/bin/env node
// The plain program of tests/bridge/peer.cpp on @foxglove/rtps, which shares no code with Cyclone DDS
// or Fast DDS. peer DOMAIN INTERFACE MACHINE
//
// That stack has the parts of a writer, as discovery needs them, but publishes nothing: a writer is
// put together here. It announces itself once, sends heartbeats once, and hands over duplicates:
// here both are repeated, and duplicates dropped.

import { networkInterfaces } from "node:os";
import { createInterface } from "node:readline";
import { CdrReader, CdrWriter } from "@foxglove/cdr";
import * as rtps from "@foxglove/rtps";
import { UdpSocketNode } from "@foxglove/rtps/nodejs";

const [domain, networkInterface, machine] = process.argv.slice(2);
const { address } = networkInterfaces()[networkInterface].find(({ family }) => family === "IPv4");
const joints = "sensor_msgs::msg::dds_::JointState_";
const topics = {
  joint_states: ["measured", joints, rtps.Reliability.Reliable, 10],
  commanded_joint_states: ["commanded", joints, rtps.Reliability.BestEffort, 5],
  events: ["event", "std_msgs::msg::dds_::String_", rtps.Reliability.Reliable, 10],
};

async function udpSocketCreate(options) {
  const socket = await UdpSocketNode.Create(options);
  const join = socket.addMembership.bind(socket);
  socket.addMembership = async (group) => {
    await join(group, address);
    await socket.setMulticastInterface(address);
  };
  return socket;
}

function endpoint(name, typeName, reliability, depth) {
  return {
    topicName: `rt/${machine}/${name}`,
    typeName,
    durability: rtps.Durability.Volatile,
    reliability: { kind: reliability, maxBlockingTime: { sec: 1, nsec: 0 } },
    history: { kind: rtps.HistoryKind.KeepLast, depth },
  };
}

const participant = new rtps.Participant({
  name: "peer",
  addresses: [address],
  domainId: Number(domain),
  vendorId: rtps.VendorId.Unknown, // it would pass for Cyclone DDS
  udpSocketCreate,
});
const { guidPrefix, protocolVersion, vendorId } = participant.attributes;

function put(writer, sequenceNumber, data, instanceHandle) {
  const writerGuid = rtps.makeGuid(guidPrefix, writer.attributes.entityId);
  const timestamp = { sec: Math.floor(Date.now() / 1000), nsec: 0 };
  writer.history.set({ timestamp, kind: rtps.ChangeKind.Alive, writerGuid, sequenceNumber, data, instanceHandle });
}

function announcedWriter(attributes) {
  const entityId = rtps.makeEntityId(0x100, rtps.EntityKind.AppdefWriterNoKey);
  const guid = rtps.makeGuid(guidPrefix, entityId);
  const parameters = new rtps.Parameters();
  for (const name of ["topicName", "typeName", "durability", "reliability", "history"]) {
    parameters[name](attributes[name]);
  }
  parameters.protocolVersion(protocolVersion);
  parameters.vendorId(vendorId);
  parameters.endpointGuid(guid);
  parameters.finish();
  put(participant._writers.get(rtps.EntityIdBuiltin.PublicationsWriter), 1n, parameters.data, guid);
  const writer = new rtps.Writer({ guidPrefix, entityId, protocolVersion, vendorId, ...attributes });
  participant._writers.set(entityId, writer);
  participant.on("discoveredSubscription", (reader) => {
    const other = participant._participants.get(reader.guidPrefix);
    if (reader.topicName === attributes.topicName && !other.remoteReadersForWriterId(entityId).length) {
      writer.history = new rtps.WriterHistoryCache(writer.attributes); // who comes later gets nothing old
      other.localWriterIdToRemoteReaderIds.set(entityId, [reader.entityId]);
    }
  });
  return writer;
}

function trajectoryOf(line) {
  const [seconds, nanoseconds, joint, ...numbers] = line.split(" ");
  const cdr = new CdrWriter();
  cdr.int32(Number(seconds)).uint32(Number(nanoseconds)).string("").sequenceLength(1).string(joint);
  cdr.sequenceLength(numbers.length / 3);
  for (let i = 0; i < numbers.length; i += 3) {
    const [time, position, velocity] = numbers.slice(i, i + 3).map(Number);
    cdr.float64Array([position], true).float64Array([velocity], true).float64Array([], true).float64Array([], true);
    cdr.int32(Math.floor(time)).uint32(Math.floor((time % 1) * 1e9));
  }
  return cdr.data;
}

function textOf(what, data) {
  const cdr = new CdrReader(data);
  if (what === "event") return cdr.string();
  cdr.int32(), cdr.uint32(), cdr.string();
  const names = cdr.stringArray(), positions = cdr.float64Array();
  return names.map((name, i) => `${name} ${positions[i]}`).join(" ");
}

for (const [name, [, ...qos]] of Object.entries(topics)) participant.subscribe(endpoint(name, ...qos));
const writer = announcedWriter(
  endpoint("joint_trajectory", "trajectory_msgs::msg::dds_::JointTrajectory_", rtps.Reliability.Reliable, 10));
const heard = new Set();
participant.on("userData", ({ publication, writerSeqNumber, serializedData }) => {
  const message = `${publication.guidPrefix} ${publication.entityId} ${writerSeqNumber}`;
  if (heard.has(message)) return;
  heard.add(message);
  const [what] = topics[publication.topicName.split("/").at(-1)];
  console.log(what, textOf(what, serializedData));
});
participant.on("error", (error) => console.log("error", error.message));
await participant.start();
setInterval(() => {
  void participant.broadcastParticipant(participant.attributes);
  for (const other of participant._participants.values()) void participant.sendInitialHeartbeats(other);
}, 200);
let sent = 0n;
for await (const line of createInterface(process.stdin)) {
  put(writer, ++sent, trajectoryOf(line));
  void participant.sendDefaultChanges(writer);
}
process.exit();
