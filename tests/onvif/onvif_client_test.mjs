// slewonvif driven by the npm onvif client against a real-time slewd, judged on the
// bus, the transcript and slewvideo's picture.
// node onvif_client_test.mjs ONVIF_PORT DISCOVERY_PORT SNAPSHOT_URL RTSP_URL SLEWCTL PASSWORD_FILE
import { execFileSync } from 'node:child_process';
import dgram from 'node:dgram';
import fs from 'node:fs';
import onvif from 'onvif';
import { busOf, check, expect, failures, sleep, until } from '../lib/harness.mjs';

const [port, discoveryPort, snapshotUrl, rtspUrl, slewctl, passwordFile] = process.argv.slice(2);
const password = fs.readFileSync(passwordFile, 'utf8').trim();
const transcript = `${process.env.SLEWD_STATE}/transcript.log`;
const keptPresets = `${process.env.SLEWD_STATE}/../presets.json`;
const { get, set } = busOf(slewctl);
const PT = 'http://www.onvif.org/ver10/tptz/PanTiltSpaces/', PTZ = 'xmlns="http://www.onvif.org/ver20/ptz/wsdl"';
const STEP_PAN = 2 / 65535, STEP_TILT = 2 / 21298;  // one step in the generic space

// A client call as a promise; fails() turns one into its error (null when it succeeded).
const call = (cam, fn, ...args) => new Promise((resolve, reject) =>
  cam[fn](...args, (err, result) => (err ? reject(err) : resolve(result))));
const fails = (promise) => promise.then(() => null, (e) => e);
const position = async () => ({ pan: +(await get('ptz.pan_pos')), tilt: +(await get('ptz.tilt_pos')) });
const near = (a, b) => Math.abs(a.pan - b.pan) <= 1 && Math.abs(a.tilt - b.tilt) <= 1;
const headUp = (ms) => until('the head up', async () => (await get('ptz.init.pt')) === 'done' && (await get('ptz.status')) === '0', ms);
const status = (want, ms) => until(`ptz.status ${want}`, async () => (await get('ptz.status')) === want, ms);
// GetStatus until both axes are IDLE (faults while slewd restarts polled through); the status then.
const idle = (cam) => until('MoveStatus IDLE', async () => {
  const s = await call(cam, 'getStatus', {}).catch(() => null);
  return s && s.moveStatus.panTilt === 'IDLE' && s.moveStatus.zoom === 'IDLE' && s;
});
const moveAndIdle = async (cam, fn, args) => { await call(cam, fn, args); return idle(cam); };
const transcriptSince = (mark) => fs.readFileSync(transcript, 'utf8').slice(mark);
// A raw PTZ request through the client's own transport.
const raw = (cam, op, inner) => call(cam, '_request', { service: 'ptz', body: `${cam._envelopeHeader()}<${op} ${PTZ}>` +
  `<ProfileToken>${cam.activeSource.profileToken}</ProfileToken>${inner}</${op}>${cam._envelopeFooter()}` });
const connect = (options) => new Promise((resolve, reject) => {
  const cam = new onvif.Cam({ hostname: '127.0.0.1', port: +port, autoconnect: false, timeout: 10000, username: 'admin', password, ...options });
  cam.connect((err) => (err ? reject(err) : resolve(cam)));
});

// The landmark Barn's centre in the snapshot, on the 0..10000 scale, from its colour.
async function barnInPicture() {
  await sleep(400);  // a frame or two after the head stood still
  const rgb = execFileSync('ffmpeg', ['-loglevel', 'error', '-i', `${snapshotUrl}/snapshot.jpg`, '-f', 'rawvideo',
    '-pix_fmt', 'rgb24', '-'], { maxBuffer: 1 << 24 });
  const w = 640, h = rgb.length / 3 / w;
  let n = 0, sx = 0, sy = 0;
  for (let i = 0; i < w * h; i++) {
    if (Math.abs(rgb[3 * i] - 0x8e) < 24 && Math.abs(rgb[3 * i + 1] - 0x5a) < 24 && Math.abs(rgb[3 * i + 2] - 0x2b) < 24) {
      n++; sx += i % w; sy += Math.floor(i / w);
    }
  }
  expect(n >= 20, `Barn not in the picture (${n} pixels)`);
  return { x: (sx / n + 0.5) / w * 10000, y: (sy / n + 0.5) / h * 10000 };
}

// A Probe as clients send it; resolves with the answer's text.
function probe(id, address = '127.0.0.1') {
  const d = 'http://schemas.xmlsoap.org/ws/2005/04/discovery';
  const msg = '<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"' +
    ` xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header><a:Action>${d}/Probe</a:Action>` +
    `<a:MessageID>${id}</a:MessageID><a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To></s:Header><s:Body>` +
    `<Probe xmlns="${d}"><d:Types xmlns:d="${d}" xmlns:dp0="http://www.onvif.org/ver10/network/wsdl">` +
    'dp0:NetworkVideoTransmitter</d:Types></Probe></s:Body></s:Envelope>';
  return new Promise((resolve, reject) => {
    const sock = dgram.createSocket('udp4');
    const timer = setTimeout(() => { sock.close(); reject(new Error('no ProbeMatches')); }, 3000);
    sock.on('message', (m) => { clearTimeout(timer); sock.close(); resolve(m.toString()); });
    sock.send(msg, +discoveryPort, address);
  });
}

// The runner's second call, after slewd's restart: presets kept, status served.
async function afterRestart() {
  await headUp(30000);
  const saved = JSON.parse(fs.readFileSync(keptPresets, 'utf8'));
  await check('after a restart of slewd: presets keep names and tokens, the status is served again', async () => {
    const cam = await connect();
    const list = await call(cam, 'getPresets', {});
    for (const [name, token] of Object.entries(saved)) {
      expect(list[name] && String(list[name].$.token) === token, `preset "${name}" (${token}) lost`);
    }
    await idle(cam);
    return Object.keys(saved).join(', ');
  });
}

async function main() {
  let cam;
  await headUp();
  await check('discovery: a Probe is answered by unicast with the device address', async () => {
    const id = 'urn:uuid:1b7e0c3e-0000-4000-8000-00000000abcd', device = `http://127.0.0.1:${port}/onvif/device_service`;
    const text = await probe(id);
    expect(text.includes(`<wsa:RelatesTo>${id}</wsa:RelatesTo>`), 'RelatesTo is not the MessageID');
    expect(text.includes(device), 'no XAddrs');
    expect(text.includes('dn:NetworkVideoTransmitter'), 'no Types');
    if (!process.env.MULTICAST) return 'no network of its own here: unicast only';
    expect((await probe(id, '239.255.255.250')).includes(device), 'no answer to the multicast Probe');
    return 'unicast and multicast';
  });

  await check('connect with a digest password; profiles and stream URI', async () => {
    cam = await connect();
    const src = cam.activeSource;
    expect(src && src.encoding === 'H264', 'no H.264 profile matched to a video source');
    expect(src.ptz && src.ptz.token === 'ptz_head', 'no PTZ configuration in the profile');
    const uri = (await call(cam, 'getStreamUri', { protocol: 'RTSP' })).uri, snap = (await call(cam, 'getSnapshotUri', {})).uri;
    expect(uri === `${rtspUrl}/head`, `stream URI ${uri}`);
    expect(snap === `${snapshotUrl}/snapshot.jpg`, `snapshot URI ${snap}`);
    expect(await fails(call(cam, 'getStreamUri', { protocol: 'HTTP' })), 'an unserved transport got a URI');
    // The stream itself (h264 640x360 by ffprobe): video_stream_test.cpp.
    expect(src.width === 640 && src.height === 360, `profile size ${src.width}x${src.height}`);
    return uri;
  });
  if (!cam) throw new Error('cannot go on without a connection');

  await check('HTTP Digest is accepted too', async () => {
    const s = await call(await connect({ useWSSecurity: false }), 'getStatus', {});
    expect(s.moveStatus.panTilt, 'no MoveStatus');
  });

  // Wrong passwords, replays and other refusals, with no write on the bus: onvif_service_test.cpp.

  await check('ContinuousMove left, then Stop: the head turned left and stopped', async () => {
    const mark = fs.statSync(transcript).size, before = await position();
    await call(cam, 'continuousMove', { x: -0.5, y: 0, zoom: 0 });
    await status('1');
    await sleep(600);
    const moving = (await call(cam, 'getStatus', {})).moveStatus.panTilt;
    expect(moving === 'MOVING', `MoveStatus ${moving} while turning`);
    await call(cam, 'stop', {});
    await status('0');
    const s = await idle(cam), after = await position();
    const turned = (after.pan - before.pan + 65535) % 65535;  // pan grows to the left
    expect(turned > 100 && turned < 32767, `pan went from ${before.pan} to ${after.pan}`);
    // Direction 0 turns left.
    expect(/PanContinuousMove\(0,[1-9]\d*\)[\s\S]*PanContinuousMove\(0,0\)/.test(transcriptSince(mark)),
      'no left motion then stop in the transcript');
    expect(Math.abs(s.position.x + after.pan / 32767.5) < STEP_PAN || after.pan > 32767, 'GetStatus position is not the bus position');
    return `turned ${turned} steps`;
  });

  await check('a ContinuousMove with a Timeout stops by itself', async () => {
    await call(cam, 'continuousMove', { x: 0.3, y: 0, timeout: 1000 });
    await status('1');
    await status('0', 5000);
  });

  await check('AbsoluteMove to a generic position; IDLE means the position read back is final', async () => {
    const target = { x: 0.25, y: 0.2, zoom: 0.1 };
    const s = await moveAndIdle(cam, 'absoluteMove', target);
    const bus = await position(), zoom = +(await get('ptz.lens.get_pos.zoom'));
    // The mapping of docs/onvif.md: pan = -x * 65535/2 (mod 65535), tilt = (1 - y)/2 * 21298, zoom = z * 16384.
    expect(near(bus, { pan: 65535 - Math.round(0.25 * 65535 / 2), tilt: Math.round(0.4 * 21298) }), `at ${bus.pan},${bus.tilt}`);
    expect(Math.abs(zoom - Math.round(0.1 * 16384)) <= 1, `zoom ${zoom}`);
    expect(Math.abs(s.position.x - target.x) <= STEP_PAN && Math.abs(s.position.y - target.y) <= STEP_TILT,
      `GetStatus read back ${s.position.x},${s.position.y}`);
    expect(Math.abs(s.position.zoom - target.zoom) <= 1 / 16384, `zoom read back ${s.position.zoom}`);
  });

  await check('RelativeMove in the FOV space brings a landmark a quarter off centre to the centre', async () => {
    // Look at the Barn (pan 75 deg, 4 deg below the horizon) at wide angle, then a quarter picture away.
    const barn = { x: -Math.round(75 * 65535 / 360) / 32767.5, y: 1 - 2 * Math.round(31 * 65535 / 360) / 21298, zoom: 0 };
    const fov = (x, y) => moveAndIdle(cam, 'relativeMove', { x, y, xyspace: `${PT}TranslationSpaceFov` });
    await moveAndIdle(cam, 'absoluteMove', barn);
    await fov(-0.5, 0);
    const off = await barnInPicture();
    expect(Math.abs(off.x - 7500) < 600, `the Barn is at ${off.x.toFixed(0)}, not a quarter right of centre`);
    // As a tracker does: the move that brings what it sees there to the centre.
    await fov((off.x - 5000) / 5000, (5000 - off.y) / 5000);
    const c = await barnInPicture();
    expect(Math.abs(c.x - 5000) <= 200 && Math.abs(c.y - 5000) <= 200, `the Barn ends at ${c.x.toFixed(0)},${c.y.toFixed(0)}`);
    return `from ${off.x.toFixed(0)} to ${c.x.toFixed(0)},${c.y.toFixed(0)} of 10000`;
  });

  await check('SetPreset, GotoPreset, GetPresets, RemovePreset round trip with the names', async () => {
    await moveAndIdle(cam, 'absoluteMove', { x: -0.5, y: 0.3, zoom: 0 });
    const at = await position();
    await call(cam, 'setPreset', { presetName: 'north gate' });
    const list = await call(cam, 'getPresets', {});
    expect(list['north gate'], `no preset named "north gate": ${JSON.stringify(Object.keys(list))}`);
    const token = String(list['north gate'].$.token);
    expect(/id:\d+,pan:/.test(await get('ptz.preset.position.0')), 'no preset on the bus');
    await moveAndIdle(cam, 'absoluteMove', { x: 0.1, y: 0.1, zoom: 0 });
    await moveAndIdle(cam, 'gotoPreset', { preset: token });
    const back = await position();
    expect(near(back, at), `at ${back.pan},${back.tilt}, not ${at.pan},${at.tilt}`);
    await call(cam, 'removePreset', { presetToken: token });
    expect(!(await call(cam, 'getPresets', {}))['north gate'], 'the preset is still listed');
    return `token ${token}`;
  });

  await check('GotoHomePosition: refused before a home is set, then goes home', async () => {
    const e = await fails(call(cam, 'gotoHomePosition', {}));
    expect(e && /home/i.test(e.message), `no fault without a home: ${e && e.message}`);
    await moveAndIdle(cam, 'absoluteMove', { x: 0.5, y: 0.5, zoom: 0 });
    const home = await position();
    await call(cam, 'setHomePosition', {});
    await moveAndIdle(cam, 'absoluteMove', { x: -0.2, y: 0, zoom: 0 });
    await moveAndIdle(cam, 'gotoHomePosition', {});
    expect(near(await position(), home), 'not home');
  });

  await check('a preset tour is the head\'s patrol: started and stopped', async () => {
    await call(cam, 'setPreset', { presetName: 'tour a' });
    await moveAndIdle(cam, 'absoluteMove', { x: 0.3, y: 0.4, zoom: 0 });
    await call(cam, 'setPreset', { presetName: 'tour b' });
    const list = await call(cam, 'getPresets', {});
    await set('ptz.patrol.set01', `${list['tour a'].$.token},${list['tour b'].$.token}`);
    await set('ptz.patrol.time01', '1,1');
    await set('ptz.patrol.speed01', '720,720');
    expect(JSON.stringify(await raw(cam, 'GetPresetTours', '')).includes('"token":"1"'), 'tour 1 not listed');
    const operate = (op) => raw(cam, 'OperatePresetTour', `<PresetTourToken>1</PresetTourToken><Operation>${op}</Operation>`);
    const mode = (m, s) => until(`mode ${m}`, async () => (await get('ptz.mode_status')) === m && (await get('ptz.status')) === s);
    await operate('Start');
    await mode('sequence', '14');
    await operate('Stop');
    await mode('manual', '0');
  });

  // What must survive the restart the runner makes next.
  const kept = {};
  for (const [name, p] of Object.entries(await call(cam, 'getPresets', {}).catch(() => ({})))) kept[name] = String(p.$.token);
  fs.writeFileSync(keptPresets, JSON.stringify(kept));
}

await (process.env.AFTER_RESTART ? afterRestart() : main()).catch((e) => failures.push(`run: ${e.stack}`));
console.log(failures.length ? `${failures.length} failed: ${failures.join('; ')}` : 'all passed');
process.exit(failures.length ? 1 : 0);
