// The debugger as an editor's client sees it: with the client library of the protocol's makers, and
// with messages that no client should send.
//
//   node dap_test.js PROGRAM SHADER
'use strict';
const assert = require('assert');
const {spawnSync} = require('child_process');

let DebugClient;
try {
  ({DebugClient} = require('@vscode/debugadapter-testsupport'));
} catch (error) {
  console.log('skipped: @vscode/debugadapter-testsupport is not installed');
  process.exit(77);
}

const [program, shader] = process.argv.slice(2);
const patience = 120000;  // milliseconds until an answer must have come
const launch = {program: shader, pixel: [20, 20], size: '41x41'};

const tests = {
  async breakpointStackAndVariables(client) {
    await client.hitBreakpoint(launch, {path: shader, line: 11});
    const stack = (await client.stackTraceRequest({threadId: 1})).body;
    assert.deepStrictEqual(stack.stackFrames.map((frame) => frame.name),
                           ['vec3 shade(vec2 p)', 'void main()']);
    assert.strictEqual(stack.stackFrames[1].line, 18);
    const scopes = (await client.scopesRequest({frameId: 1})).body.scopes;
    const list = async (name) => (await client.variablesRequest({
      variablesReference: scopes.find((scope) => scope.name === name).variablesReference,
    })).body.variables;
    const locals = await list('Locals');
    const p = locals.find((variable) => variable.name === 'p');
    assert.strictEqual(p.value, 'vec2(0, 0)');
    const parts = await client.variablesRequest({variablesReference: p.variablesReference});
    assert.deepStrictEqual(parts.body.variables.map((part) => part.name), ['x', 'y']);
    const inputs = await list('Globals and inputs');
    assert.strictEqual(inputs.find((v) => v.name === 'u_resolution').value, 'vec2(41, 41)');
    assert.ok((await list('Registers')).length > 3);
    const value = await client.evaluateRequest({expression: 'd + 2.0', frameId: 1});
    assert.strictEqual(value.body.result, '2');
    await assert.rejects(client.evaluateRequest({expression: 'nothing', frameId: 1}));
    const reference = stack.stackFrames[0].instructionPointerReference;
    const code = await client.send('disassemble',
                                   {memoryReference: reference, instructionCount: 4});
    assert.strictEqual(code.body.instructions[0].line, 11);
  },

  async stepsBothWays(client) {
    const line = async () =>
      (await client.stackTraceRequest({threadId: 1})).body.stackFrames[0].line;
    const move = async (request, expected) => {
      await Promise.all([client.waitForEvent('stopped'), client.send(request, {threadId: 1})]);
      assert.strictEqual(await line(), expected, request);
    };
    await client.hitBreakpoint(launch, {path: shader, line: 12});
    await move('next', 13);
    await move('stepIn', 6);
    await move('stepBack', 13);
    await move('stepBack', 12);
    await move('stepOut', 18);
    await move('reverseContinue', 12);
  },

  async conditionsLogpointsAndTheEnd(client) {
    await Promise.all([
      client.waitForEvent('initialized').then(async () => {
        const answer = await client.setBreakpointsRequest({
          source: {path: shader},
          breakpoints: [{line: 10, condition: 'p.x > 1.0'}, {line: 13, logMessage: 'd is {d}'},
                        {line: 99}],
        });
        assert.deepStrictEqual(answer.body.breakpoints.map((b) => b.verified),
                               [true, true, false]);
        await client.configurationDoneRequest();
      }),
      client.launch(launch),
      client.assertOutput('console', 'd is 0'),
      client.waitForEvent('terminated'),
    ]);
  },

  async nonFiniteValues(client) {
    await Promise.all([
      client.waitForEvent('initialized').then(async () => {
        await client.setExceptionBreakpointsRequest({filters: ['nan']});
        await client.configurationDoneRequest();
      }),
      client.launch(launch),
      client.waitForEvent('stopped').then((event) => {
        assert.strictEqual(event.body.reason, 'exception');
        assert.match(event.body.text, /direction = vec2\(-?nan/);
      }),
    ]);
  },

  async dataBreakpoints(client) {
    await client.hitBreakpoint(launch, {path: shader, line: 11});
    const info = await client.send('dataBreakpointInfo', {name: 'direction'});
    await client.send('setDataBreakpoints', {breakpoints: [{dataId: info.body.dataId}]});
    const [event] = await Promise.all([client.waitForEvent('stopped'),
                                       client.continueRequest({threadId: 1})]);
    assert.strictEqual(event.body.reason, 'data breakpoint');
  },

  async refusals(client) {
    await client.initializeRequest();
    await assert.rejects(client.send('noSuchRequest'), /not supported/);
    await assert.rejects(client.stackTraceRequest({threadId: 1}), /nothing has been launched/);
    await assert.rejects(client.launchRequest({program: 'missing.frag'}), /missing.frag/);
    await assert.rejects(client.launchRequest({program: 7}), /^Error: "program": type/);
    await assert.rejects(client.launchRequest({...launch, set: [1]}), /"set"/);
    await assert.rejects(client.launchRequest({...launch, time: 1e99}), /"time"/);
    await client.launchRequest(launch);
    const many = await client.setBreakpointsRequest(
      {source: {path: shader}, breakpoints: Array(2000).fill({line: 10})});
    assert.strictEqual(many.body.breakpoints.findIndex((b) => !b.verified), 1000);
  },
};

function message(text) {
  return `Content-Length: ${Buffer.byteLength(text)}\r\n\r\n${text}`;
}

// Input, and the exit code that it must lead to.
const broken = [
  ['', 0],
  ['nonsense\r\n\r\n', 1],
  ['Content-Length: 99999999999\r\n\r\n', 1],
  ['Content-Length: 10\r\n\r\n{', 1],
  [message('{"type": '), 1],
  [message('[1, 2]'), 1],
  [message('{"type": "request", "command": 7, "seq": 1}'), 0],
  // Again and again: the thread that reads may be anywhere.
  ...Array(25).fill([message('{"type": "request", "command": "disconnect", "seq": 1}'), 0]),
  ['x'.repeat(100000), 1],
  [message(`{"seq": ${'['.repeat(1e6)}${']'.repeat(1e6)}}`), 1],
];

async function main() {
  for (const [name, test] of Object.entries(tests)) {
    // The client passes one argument only.
    const client = new DebugClient('env', `-S${program} debug --dap`, 'shadermachine');
    client.defaultTimeout = patience;
    await client.start();
    client._adapterProcess.stdin.on('error', () => {});
    await test(client);
    await client.stop();
    console.log(`ok ${name}`);
  }
  for (const [input, expected] of broken) {
    const result = spawnSync(program, ['debug', '--dap'], {input, timeout: patience});
    assert.strictEqual(result.status, expected, JSON.stringify(input.slice(0, 60)));
  }
  console.log('ok broken messages');
}

main().then(() => process.exit(0), (error) => {
  console.error(error);
  process.exit(1);
});
