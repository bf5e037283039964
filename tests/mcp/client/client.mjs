// client.mjs SERVER SAMPLE_CAPTURE: a whole day of an assistant's work through the official client.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import Ajv from 'ajv/dist/2020.js';

const [server, sampleCapture] = process.argv.slice(2);
const work = fs.mkdtempSync(path.join(os.tmpdir(), 'ombrelux client é 写 '));
const complaints = [];

async function connect(version) {
  const transport = new StdioClientTransport({ command: server, args: ['mcp'], env: process.env, stderr: 'pipe' });
  const log = [];
  transport.stderr.on('data', (chunk) => log.push(chunk.toString()));
  const send = transport.send.bind(transport);
  transport.send = (message, options) => {
    if (version && message.method === 'initialize') message.params.protocolVersion = version;
    return send(message, options);
  };
  const client = new Client({ name: 'test', version: '1' });
  client.onerror = (error) => complaints.push(error); // also for a line that is no message
  await client.connect(transport);
  return { client, transport, log };
}

function step(text) {
  console.log(`${(performance.now() / 1000).toFixed(1)} s  ${text}`);
}

async function versions() {
  for (const version of ['2024-11-05', '2025-03-26', '2025-06-18', undefined]) {
    const { client, log } = await connect(version);
    assert.deepEqual(client.getServerVersion(), { name: 'ombrelux', version: '1.1.3' });
    assert.match(client.getInstructions(), /Overlap: 60 to 80 %/);
    await client.ping();
    await client.close();
    assert.match(log.join(''), /^\[ombrelux\] Ombrelux MCP server ready — 1\.1\.3\n/);
  }
  step('each protocol version');
}

async function schemas(client) {
  const { tools } = await client.listTools();
  assert.equal(tools.length, 10);
  const ajv = new Ajv({ strict: true, allowUnionTypes: true });
  const checks = Object.fromEntries(tools.map((tool) => [tool.name, ajv.compile(tool.inputSchema)]));
  for (const tool of tools) {
    assert.ok(tool.description.length > 20, tool.name);
    for (const property of Object.values(tool.inputSchema.properties)) assert.ok(property.description.length > 10);
    assert.equal(checks[tool.name]({ nonsense: 1 }), false, tool.name);
  }
  const run = checks.ombrelux_run;
  assert.ok(run({ media: '/a', iterations: 1, technique: 'mcmc', crop_edges: 0.2, fisheye_fov: 190 }));
  assert.ok(run({ media: ['/a', '/b'] }));
  for (const wrong of [{}, { media: [] }, { media: '/a', iterations: 0 }, { media: '/a', technique: 'x' },
    { media: '/a', crop_edges: 1 }, { media: '/a', fisheye_fov: 0 }, { media: '/a', sh_degree: 4 }]) {
    assert.equal(run(wrong), false, JSON.stringify(wrong));
  }
  step('ten tools with valid schemas');
}

function toolsOf(client) {
  const call = async (name, args = {}) => {
    const result = await client.callTool({ name, arguments: args });
    return { text: result.content[0].text, failed: result.isError };
  };
  const told = async (name, args) => {
    const { text, failed } = await call(name, args);
    assert.ok(!failed, `${name}: ${text}`);
    return JSON.parse(text);
  };
  const refused = async (name, args, sentence) => {
    const { text, failed } = await call(name, args);
    assert.ok(failed, text);
    assert.match(text, sentence);
  };
  const result = async (job) => {
    let status;
    do {
      await sleep(50);
      status = await told('ombrelux_job_status', { job });
    } while (status.state === 'running');
    assert.equal(status.state, 'finished', JSON.stringify(status));
    return told('ombrelux_job_result', { job });
  };
  return { call, told, refused, result };
}

// The tools that build, one after another, on captures of some seconds.
async function builds({ told, refused, result }) {
  const quick = { iterations: 60, resolution: 64 };
  const started = await told('ombrelux_import', { reconstruction: path.join(work, 'set'), ...quick });
  assert.equal(started.message, 'Started. Poll ombrelux_job_status with this job id.');
  await refused('ombrelux_train', { project: started.project }, /^import job is already running \(job-/);
  const imported = await result(started.job);
  assert.equal(imported.iterations, 60);
  assert.ok(fs.existsSync(imported.ply) && imported.psnr > 5);
  step('import');

  const resumed = await told('ombrelux_train', { project: started.project, resume: true, iterations: 80 });
  assert.equal((await result(resumed.job)).iterations, 80);
  const info = await told('ombrelux_project_info', { project: started.project });
  assert.equal(info.checkpoint_step, 80);
  assert.equal(info.registered_images, 10);
  assert.ok(info['held-out'].PSNR > 5 && info['held-out'].SSIM > 0);
  step('train');

  const batch = await told('ombrelux_create_batch', { folder: path.join(work, 'captures'), ...quick });
  const built = await result((await told('ombrelux_batch', { batch: batch.batch })).job);
  assert.deepEqual([built.finished, built.failed, built.items.length], [1, 0, 1]);
  step('batch');

  const room = await told('ombrelux_run', { media: path.join(work, 'room'), iterations: 20, resolution: 160 });
  const scene = await result(room.job);
  assert.ok(scene.splats > 0);
  assert.ok((await told('ombrelux_project_info', { project: scene.project })).registered_images >= 20);
  step('run');
  return started.project;
}

async function resources(client, { call, told }) {
  const found = await told('ombrelux_list_projects', { folder: work });
  assert.equal(found.projects.length, 3);
  assert.match((await call('ombrelux_capture_advice')).text, /overlap/i);
  const { resources: logs } = await client.listResources();
  assert.equal(logs.length, 3);
  for (const log of logs) {
    const { contents } = await client.readResource({ uri: log.uri });
    assert.match(contents[0].text, /^==== .*\nresult      Done\n/);
  }
  assert.equal((await client.listResourceTemplates()).resourceTemplates.length, 1);
  await assert.rejects(client.readResource({ uri: 'file:///etc/passwd' }), /^McpError: .*Only .* can be read\.$/);
  await assert.rejects(client.request({ method: 'prompts/list' }, { parse: (x) => x }), /Unknown method: prompts\/list|prompts/);
  step('resources');
}

// The client closes its end as it does when a user quits the assistant, but waits for the server: the library's own close()
// kills it after four seconds, which a disk that is busy with other things can take.
async function disconnect({ client, transport }, { told }, project) {
  const { checkpoint_step: before } = await told('ombrelux_project_info', { project });
  const { job } = await told('ombrelux_train', { project, iterations: 1000000 });
  while (!((await told('ombrelux_job_status', { job })).iteration > before)) await sleep(50);
  const child = transport._process;
  const gone = once(child, 'exit');
  child.stdin.end();
  assert.equal((await gone)[0], 0);
  await client.close();
  const next = await connect();
  const info = await toolsOf(next.client).told('ombrelux_project_info', { project });
  assert.ok(info.checkpoint_step > before, JSON.stringify(info));
  await next.client.close();
  step(`disconnect, checkpoint at step ${info.checkpoint_step}`);
}

try {
  const dataset = ['--size', '64x48', '--count', '10', '--points', '300', '--model'];
  execFileSync(sampleCapture, [...dataset, path.join(work, 'set')]);
  execFileSync(sampleCapture, [...dataset, path.join(work, 'captures', 'one')]);
  execFileSync(sampleCapture, ['--size', '320', '--count', '24', path.join(work, 'room')]);
  step('sample captures');
  await versions();
  const connection = await connect();
  const tools = toolsOf(connection.client);
  await schemas(connection.client);
  const project = await builds(tools);
  await resources(connection.client, tools);
  await disconnect(connection, tools, project);
  assert.deepEqual(complaints, []);
} finally {
  fs.rmSync(work, { recursive: true, force: true });
}
