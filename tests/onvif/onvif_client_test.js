// Drives slewonvif with the npm onvif client, as a video management system
// would, against a real-time slewd, and judges what the head did on the bus
// (slewctl, the transcript) and in slewvideo's picture.
//
// node onvif_client_test.js ONVIF_PORT DISCOVERY_PORT SNAPSHOT_URL RTSP_URL SLEWCTL PASSWORD_FILE
'use strict';
const { execFile, execFileSync } = require('node:child_process');
const dgram = require('node:dgram');
const fs = require('node:fs');
const http = require('node:http');
const { promisify } = require('node:util');
const { Cam } = require('onvif');

const [port, discoveryPort, snapshotUrl, rtspUrl, slewctl, passwordFile] = process.argv.slice(2);
const password = fs.readFileSync(passwordFile, 'utf8').trim();
const transcript = `${process.env.SLEWD_STATE}/transcript.log`;
const run = promisify(execFile);
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
const failures = [];
const PT = 'http://www.onvif.org/ver10/tptz/PanTiltSpaces/';
const STEP_PAN = 2 / 65535, STEP_TILT = 2 / 21298;  // one step in the generic space

// One bus key through slewctl ("" when it holds none).
async function get(key) {
  try { return (await run(slewctl, ['get', key])).stdout.trim(); } catch { return ''; }
}
const set = (key, value) => run(slewctl, ['set', key, value]);
// A client call as a promise: resolves with its result, rejects with its error.
const call = (cam, fn, ...args) => new Promise((resolve, reject) =>
  cam[fn](...args, (err, result) => (err ? reject(err) : resolve(result))));
// Polls check() until truthy, at most ms.
async function until(what, check, ms = 20000) {
  const end = Date.now() + ms;
  for (;;) {
    const v = await check();
    if (v) return v;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
    await sleep(50);
  }
}
// Runs one case; a failure is recorded and the next case still runs.
async function check(name, body) {
  try {
    const note = await body();
    console.log(`ok   ${name}${note ? ` (${note})` : ''}`);
  } catch (e) {
    failures.push(name);
    console.log(`FAIL ${name}: ${e.message}`);
  }
}
function expect(cond, what) { if (!cond) throw new Error(what); }
// The head's position on the bus, in steps.
const position = async () => ({ pan: +(await get('ptz.pan_pos')), tilt: +(await get('ptz.tilt_pos')) });
// GetStatus until both axes are IDLE; the status then. A fault (slewd
// restarting, slewonvif not yet following it) is polled through.
const idle = (cam) => until('MoveStatus IDLE', async () => {
  const s = await call(cam, 'getStatus', {}).catch(() => null);
  return s && s.moveStatus.panTilt === 'IDLE' && s.moveStatus.zoom === 'IDLE' && s;
});
// Lines the transcript gained since mark.
const transcriptSince = (mark) => fs.readFileSync(transcript, 'utf8').slice(mark);
// A raw request through the client's own transport, header as given.
const raw = (cam, service, header, body) => call(cam, '_request', {
  service, body: header + body + cam._envelopeFooter() });
const connect = (options) => new Promise((resolve, reject) => {
  const cam = new Cam({ hostname: '127.0.0.1', port: +port, autoconnect: false, timeout: 10000, ...options });
  cam.connect((err) => (err ? reject(err) : resolve(cam)));
});

// The landmark Barn's centre in the snapshot, on the 0..10000 scale, from its colour.
async function barnInPicture() {
  await sleep(400);  // a frame or two after the head stood still
  const jpeg = await new Promise((resolve, reject) => http.get(`${snapshotUrl}/snapshot.jpg`, (res) => {
    const parts = [];
    res.on('data', (d) => parts.push(d));
    res.on('end', () => resolve(Buffer.concat(parts)));
  }).on('error', reject));
  const rgb = execFileSync('ffmpeg', ['-loglevel', 'error', '-i', '-', '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'],
    { input: jpeg, maxBuffer: 1 << 24 });
  const w = 640, h = rgb.length / 3 / w;
  let n = 0, sx = 0, sy = 0;
  for (let i = 0; i < w * h; i++) {
    const [r, g, b] = [rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]];
    if (Math.abs(r - 0x8e) < 24 && Math.abs(g - 0x5a) < 24 && Math.abs(b - 0x2b) < 24) { n++; sx += i % w; sy += Math.floor(i / w); }
  }
  expect(n >= 20, `Barn not in the picture (${n} pixels)`);
  return { x: (sx / n + 0.5) / w * 10000, y: (sy / n + 0.5) / h * 10000 };
}

// A Probe as clients send it; resolves with the answer's text.
function probe(address = '127.0.0.1') {
  const id = 'urn:uuid:1b7e0c3e-0000-4000-8000-00000000abcd';
  const msg = '<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"' +
    ' xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header><a:Action>' +
    'http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action><a:MessageID>' + id + '</a:MessageID>' +
    '<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To></s:Header><s:Body>' +
    '<Probe xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery"><d:Types xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery"' +
    ' xmlns:dp0="http://www.onvif.org/ver10/network/wsdl">dp0:NetworkVideoTransmitter</d:Types></Probe></s:Body></s:Envelope>';
  return new Promise((resolve, reject) => {
    const sock = dgram.createSocket('udp4');
    const timer = setTimeout(() => { sock.close(); reject(new Error('no ProbeMatches')); }, 3000);
    sock.on('message', (m) => { clearTimeout(timer); sock.close(); resolve({ text: m.toString(), id }); });
    sock.send(msg, +discoveryPort, address);
  });
}

// After slewd's restart (the runner's second call): slewonvif follows the
// new slewd, and the presets kept their names and tokens.
async function afterRestart() {
  await until('the head up again', async () => (await get('ptz.init.pt')) === 'done' && (await get('ptz.status')) === '0', 30000);
  const saved = JSON.parse(fs.readFileSync(`${process.env.SLEWD_STATE}/../presets.json`, 'utf8'));
  await check('after a restart of slewd: presets keep names and tokens, the status is served again', async () => {
    const cam = await connect({ username: 'admin', password });
    const list = await call(cam, 'getPresets', {});
    for (const [name, token] of Object.entries(saved)) {
      expect(list[name] && String(list[name].$.token) === token, `preset "${name}" (${token}) lost`);
    }
    await idle(cam);
    return Object.keys(saved).join(', ');
  });
  process.exit(failures.length ? 1 : 0);
}

(async () => {
  if (process.env.AFTER_RESTART) return afterRestart();
  let cam;
  await until('the head up', async () => (await get('ptz.init.pt')) === 'done' && (await get('ptz.status')) === '0');
  await check('discovery: a Probe is answered by unicast with the device address', async () => {
    const { text, id } = await probe();
    expect(text.includes(`<wsa:RelatesTo>${id}</wsa:RelatesTo>`), 'RelatesTo is not the MessageID');
    expect(text.includes(`http://127.0.0.1:${port}/onvif/device_service`), 'no XAddrs');
    expect(text.includes('dn:NetworkVideoTransmitter'), 'no Types');
    if (!process.env.MULTICAST) return 'no network of its own here: unicast only';
    const multicast = await probe('239.255.255.250');
    expect(multicast.text.includes(`http://127.0.0.1:${port}/onvif/device_service`), 'no answer to the multicast Probe');
    return 'unicast and multicast';
  });

  await check('connect with a digest password; profiles and stream URI', async () => {
    cam = await connect({ username: 'admin', password });
    expect(cam.activeSource && cam.activeSource.encoding === 'H264', 'no H.264 profile matched to a video source');
    expect(cam.activeSource.ptz && cam.activeSource.ptz.token === 'ptz_head', 'no PTZ configuration in the profile');
    const uri = await call(cam, 'getStreamUri', { protocol: 'RTSP' });
    const snap = await call(cam, 'getSnapshotUri', {});
    expect(uri.uri === `${rtspUrl}/head`, `stream URI ${uri.uri}`);
    expect(snap.uri === `${snapshotUrl}/snapshot.jpg`, `snapshot URI ${snap.uri}`);
    let refused = false;
    await call(cam, 'getStreamUri', { protocol: 'HTTP' }).catch(() => { refused = true; });
    expect(refused, 'an unserved transport got a URI');
    // The address handed out plays: H.264 at the size the profile says.
    const probed = (await run('ffprobe', ['-v', 'error', '-rtsp_transport', 'tcp', '-select_streams', 'v:0',
      '-show_entries', 'stream=codec_name,width,height', '-of', 'csv=p=0', uri.uri], { timeout: 20000 })).stdout.trim();
    expect(probed === `h264,${cam.activeSource.width},${cam.activeSource.height}`, `ffprobe says ${probed}`);
    return `${uri.uri}: ${probed}`;
  });
  if (!cam) { console.log('cannot go on without a connection'); process.exit(1); }

  await check('HTTP Digest is accepted too', async () => {
    const plain = await connect({ username: 'admin', password, useWSSecurity: false });
    const s = await call(plain, 'getStatus', {});
    expect(s.moveStatus.panTilt, 'no MoveStatus');
  });

  await check('a wrong password and a replayed nonce are refused and move nothing', async () => {
    const before = await position();
    const mark = fs.statSync(transcript).size;
    const bad = new Cam({ hostname: '127.0.0.1', port: +port, username: 'admin', password: 'wrong', autoconnect: false });
    bad.uri = cam.uri;
    bad.timeShift = cam.timeShift;
    bad.activeSource = cam.activeSource;
    const e1 = await call(bad, 'continuousMove', { x: -0.5, y: 0 }).then(() => null, (e) => e);
    expect(e1 && /not authorized/i.test(e1.message), `wrong password: ${e1 && e1.message}`);
    // A token used for a Stop, replayed for a move.
    const header = cam._envelopeHeader();
    const prefix = `<ProfileToken>${cam.activeSource.profileToken}</ProfileToken>`;
    await raw(cam, 'ptz', header, `<Stop xmlns="http://www.onvif.org/ver20/ptz/wsdl">${prefix}</Stop>`);
    const e2 = await raw(cam, 'ptz', header, '<ContinuousMove xmlns="http://www.onvif.org/ver20/ptz/wsdl">' + prefix +
      '<Velocity><PanTilt x="-0.5" y="0" xmlns="http://www.onvif.org/ver10/schema"/></Velocity></ContinuousMove>')
      .then(() => null, (e) => e);
    expect(e2 && /used before/.test(e2.message), `replay: ${e2 && e2.message}`);
    // A replayed read is fine: it shows nothing new.
    await raw(cam, 'ptz', header, `<GetStatus xmlns="http://www.onvif.org/ver20/ptz/wsdl">${prefix}</GetStatus>`);
    await sleep(500);
    const after = await position();
    expect(after.pan === before.pan && after.tilt === before.tilt, 'the head moved');
    expect(!/PanContinuousMove\(\d,[1-9]/.test(transcriptSince(mark)), 'a pan motion was started');
  });

  await check('ContinuousMove left, then Stop: the head turned left and stopped', async () => {
    const mark = fs.statSync(transcript).size;
    const before = await position();
    await call(cam, 'continuousMove', { x: -0.5, y: 0, zoom: 0 });
    await until('ptz.status 1', async () => (await get('ptz.status')) === '1');
    await sleep(600);
    const moving = await call(cam, 'getStatus', {});
    expect(moving.moveStatus.panTilt === 'MOVING', `MoveStatus ${moving.moveStatus.panTilt} while turning`);
    await call(cam, 'stop', {});
    await until('ptz.status 0', async () => (await get('ptz.status')) === '0');
    const s = await idle(cam);
    const after = await position();
    const turned = (after.pan - before.pan + 65535) % 65535;  // pan grows to the left
    expect(turned > 100 && turned < 32767, `pan went from ${before.pan} to ${after.pan}`);
    const lines = transcriptSince(mark);
    // Direction 0 turns left.
    expect(/PanContinuousMove\(0,[1-9]\d*\)[\s\S]*PanContinuousMove\(0,0\)/.test(lines), 'no left motion then stop in the transcript');
    expect(Math.abs(s.position.x + after.pan / 32767.5) < STEP_PAN || after.pan > 32767, 'GetStatus position is not the bus position');
    return `turned ${turned} steps`;
  });

  await check('a ContinuousMove with a Timeout stops by itself', async () => {
    await call(cam, 'continuousMove', { x: 0.3, y: 0, timeout: 1000 });
    await until('ptz.status 1', async () => (await get('ptz.status')) === '1');
    await until('ptz.status 0 without a Stop', async () => (await get('ptz.status')) === '0', 5000);
  });

  await check('AbsoluteMove to a generic position; IDLE means the position read back is final', async () => {
    const target = { x: 0.25, y: 0.2, zoom: 0.1 };
    await call(cam, 'absoluteMove', target);
    const s = await idle(cam);
    const bus = await position();
    const zoom = +(await get('ptz.lens.get_pos.zoom'));
    // The mapping of docs/onvif.md: pan = -x * 65535/2 (mod 65535), tilt = (1 - y)/2 * 21298, zoom = z * 16384.
    expect(Math.abs(bus.pan - (65535 - Math.round(0.25 * 65535 / 2))) <= 1, `pan ${bus.pan}`);
    expect(Math.abs(bus.tilt - Math.round(0.4 * 21298)) <= 1, `tilt ${bus.tilt}`);
    expect(Math.abs(zoom - Math.round(0.1 * 16384)) <= 1, `zoom ${zoom}`);
    expect(Math.abs(s.position.x - target.x) <= STEP_PAN && Math.abs(s.position.y - target.y) <= STEP_TILT,
      `GetStatus read back ${s.position.x},${s.position.y}`);
    expect(Math.abs(s.position.zoom - target.zoom) <= 1 / 16384, `zoom read back ${s.position.zoom}`);
  });

  await check('RelativeMove in the FOV space brings a landmark a quarter off centre to the centre', async () => {
    // Look at the Barn (pan 75 deg, 4 deg below the horizon) at wide angle, then a quarter picture away.
    const barnPan = -Math.round(75 * 65535 / 360) / 32767.5, barnTilt = 1 - 2 * Math.round(31 * 65535 / 360) / 21298;
    await call(cam, 'absoluteMove', { x: barnPan, y: barnTilt, zoom: 0 });
    await idle(cam);
    await call(cam, 'relativeMove', { x: -0.5, y: 0, xyspace: `${PT}TranslationSpaceFov` });
    await idle(cam);
    const off = await barnInPicture();
    expect(Math.abs(off.x - 7500) < 600, `the Barn is at ${off.x.toFixed(0)}, not a quarter right of centre`);
    // As a tracker does: the move that brings what it sees there to the centre.
    await call(cam, 'relativeMove', { x: (off.x - 5000) / 5000, y: (5000 - off.y) / 5000, xyspace: `${PT}TranslationSpaceFov` });
    await idle(cam);
    const centred = await barnInPicture();
    expect(Math.abs(centred.x - 5000) <= 200 && Math.abs(centred.y - 5000) <= 200,
      `the Barn ends at ${centred.x.toFixed(0)},${centred.y.toFixed(0)}`);
    return `from ${off.x.toFixed(0)} to ${centred.x.toFixed(0)},${centred.y.toFixed(0)} of 10000`;
  });

  await check('SetPreset, GotoPreset, GetPresets, RemovePreset round trip with the names', async () => {
    await call(cam, 'absoluteMove', { x: -0.5, y: 0.3, zoom: 0 });
    await idle(cam);
    const at = await position();
    await call(cam, 'setPreset', { presetName: 'north gate' });
    const list = await call(cam, 'getPresets', {});
    expect(list['north gate'], `no preset named "north gate": ${JSON.stringify(Object.keys(list))}`);
    const token = String(list['north gate'].$.token);
    expect(/id:\d+,pan:/.test(await get('ptz.preset.position.0')), 'no preset on the bus');
    await call(cam, 'absoluteMove', { x: 0.1, y: 0.1, zoom: 0 });
    await idle(cam);
    await call(cam, 'gotoPreset', { preset: token });
    await idle(cam);
    const back = await position();
    expect(Math.abs(back.pan - at.pan) <= 1 && Math.abs(back.tilt - at.tilt) <= 1, `at ${back.pan},${back.tilt}, not ${at.pan},${at.tilt}`);
    await call(cam, 'removePreset', { presetToken: token });
    const after = await call(cam, 'getPresets', {});
    expect(!after['north gate'], 'the preset is still listed');
    return `token ${token}`;
  });

  await check('GotoHomePosition: refused before a home is set, then goes home', async () => {
    const e = await call(cam, 'gotoHomePosition', {}).then(() => null, (err) => err);
    expect(e && /home/i.test(e.message), `no fault without a home: ${e && e.message}`);
    await call(cam, 'absoluteMove', { x: 0.5, y: 0.5, zoom: 0 });
    await idle(cam);
    const home = await position();
    await call(cam, 'setHomePosition', {});
    await call(cam, 'absoluteMove', { x: -0.2, y: 0, zoom: 0 });
    await idle(cam);
    await call(cam, 'gotoHomePosition', {});
    await idle(cam);
    const back = await position();
    expect(Math.abs(back.pan - home.pan) <= 1 && Math.abs(back.tilt - home.tilt) <= 1, 'not home');
  });

  await check('a preset tour is the head\'s patrol: started and stopped', async () => {
    await call(cam, 'setPreset', { presetName: 'tour a' });
    await call(cam, 'absoluteMove', { x: 0.3, y: 0.4, zoom: 0 });
    await idle(cam);
    await call(cam, 'setPreset', { presetName: 'tour b' });
    const list = await call(cam, 'getPresets', {});
    await set('ptz.patrol.set01', `${list['tour a'].$.token},${list['tour b'].$.token}`);
    await set('ptz.patrol.time01', '1,1');
    await set('ptz.patrol.speed01', '720,720');
    const header = () => cam._envelopeHeader();
    const tours = await raw(cam, 'ptz', header(), '<GetPresetTours xmlns="http://www.onvif.org/ver20/ptz/wsdl">' +
      '<ProfileToken>profile_head</ProfileToken></GetPresetTours>');
    expect(JSON.stringify(tours).includes('"token":"1"'), 'tour 1 not listed');
    const operate = (op) => raw(cam, 'ptz', header(), '<OperatePresetTour xmlns="http://www.onvif.org/ver20/ptz/wsdl">' +
      `<ProfileToken>profile_head</ProfileToken><PresetTourToken>1</PresetTourToken><Operation>${op}</Operation></OperatePresetTour>`);
    await operate('Start');
    await until('the patrol running', async () => (await get('ptz.mode_status')) === 'sequence' && (await get('ptz.status')) === '14');
    await operate('Stop');
    await until('the patrol stopped', async () => (await get('ptz.mode_status')) === 'manual' && (await get('ptz.status')) === '0');
  });

  await check('values out of range are refused and move nothing', async () => {
    await idle(cam);  // the patrol's last move ends even after its stop
    const before = await position();
    for (const x of ['NaN', 'INF', '1e308', '1.0000001']) {
      const e = await raw(cam, 'ptz', cam._envelopeHeader(), '<AbsoluteMove xmlns="http://www.onvif.org/ver20/ptz/wsdl">' +
        `<ProfileToken>profile_head</ProfileToken><Position><PanTilt x="${x}" y="0" xmlns="http://www.onvif.org/ver10/schema"/>` +
        '</Position></AbsoluteMove>').then(() => null, (err) => err);
      expect(e && /InvalidArgVal|outside|not a number/.test(e.message), `x=${x} accepted`);
    }
    await sleep(300);
    const after = await position();
    expect(after.pan === before.pan && after.tilt === before.tilt, 'the head moved');
  });

  // What must survive the restart the runner makes next.
  const kept = {};
  for (const [name, p] of Object.entries(await call(cam, 'getPresets', {}).catch(() => ({})))) kept[name] = String(p.$.token);
  fs.writeFileSync(`${process.env.SLEWD_STATE}/../presets.json`, JSON.stringify(kept));
  console.log(failures.length ? `${failures.length} failed: ${failures.join('; ')}` : 'all passed');
  process.exit(failures.length ? 1 : 0);
})().catch((e) => { console.log(`FAIL ${e.stack}`); process.exit(1); });
