// Plays a flow's function nodes as Node-RED calls them: `node flow.js FLOW STEPS`. STEPS is a list:
// {"topic", "payload"} comes from the broker, {"pass": MS} lets time pass, {"restart": true} forgets what is in memory,
// {"store": false} lets the storing node fail from then on. Prints what the broker got, what was stored and what was
// warned of, as JSON.
"use strict";
const fs = require("fs");
const vm = require("vm");

const flow = JSON.parse(fs.readFileSync(process.argv[2], "utf8"));
const steps = JSON.parse(fs.readFileSync(process.argv[3], "utf8"));
const nodes = new Map(flow.map((node) => [node.id, node]));
const told = { published: [], stored: [], debugged: [], warnings: [] };
let memories = new Map();
let timers = [];
let now = 1_000_000;
let stores = true;

function memoryOf(id) {
    if (!memories.has(id)) memories.set(id, new Map());
    return memories.get(id);
}

function sendFrom(node, outputs) {
    const all = Array.isArray(outputs) ? outputs : [outputs];
    all.forEach((output, i) => {
        for (const msg of [output].flat()) {
            if (msg) for (const id of node.wires[i]) receive(nodes.get(id), msg);
        }
    });
}

function call(node, msg) {
    const memory = memoryOf(node.id);
    const variables = nodes.get(node.z).env;
    const scope = {
        msg,
        context: { get: (key) => memory.get(key), set: (key, value) => memory.set(key, value) },
        env: { get: (key) => variables.find((each) => each.name === key).value },
        node: { warn: (text) => told.warnings.push(text), send: (outputs) => sendFrom(node, outputs) },
        setTimeout: (task, pause) => timers.push({ task, due: now + pause }),
        Date: { now: () => now },
    };
    const returned = vm.runInNewContext(`(function () {${node.func}\n})()`, scope);
    // An array of another context is not an instance of this one's.
    sendFrom(node, returned == null ? [] : Array.from(returned));
}

function receive(node, msg) {
    if (node.type === "function") {
        call(node, msg);
    } else if (node.type === "file") {
        if (!stores) return;
        told.stored.push(msg.payload);
        sendFrom(node, [msg]);
    } else if (node.type === "mqtt out") {
        told.published.push(msg);
    } else if (node.type === "debug") {
        told.debugged.push(msg.payload);
    } else {
        throw new Error(`no such node is played here: ${node.type}`);
    }
}

function isMatch(filter, topic) {
    const levels = topic.split("/");
    const wanted = filter.split("/");
    return levels.length === wanted.length && wanted.every((each, i) => each === "+" || each === levels[i]);
}

for (const step of steps) {
    if (step.pass) {
        now += step.pass;
        const due = timers.filter((each) => each.due <= now);
        timers = timers.filter((each) => each.due > now);
        for (const each of due) each.task();
    }
    if (step.restart) {
        memories = new Map();
        timers = [];
    }
    if (step.store !== undefined) stores = step.store;
    if (!step.topic) continue;
    for (const node of flow.filter((each) => each.type === "mqtt in" && isMatch(each.topic, step.topic))) {
        sendFrom(node, [{ topic: step.topic, payload: step.payload }]);
    }
}
process.stdout.write(JSON.stringify(told));
