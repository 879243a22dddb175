// slewweb's page in headless Chromium against a real-time slewd, checked as a user would.
// node browser_test.mjs URL SLEWCTL STATE_FOLDER SCREENSHOT
import { readFileSync } from "node:fs";
import http from "node:http";
import puppeteer from "puppeteer-core";
import { busOf, check, failures, skipped, sleep, until } from "../lib/harness.mjs";

const [url, slewctl, state, screenshot] = process.argv.slice(2);
const { get, set } = busOf(slewctl);

// Until status 0 and the same position on two reads 300 ms apart.
async function settled() {
  await until("ptz.status 0", async () => (await get("ptz.status")) === "0");
  await until("a still position", async () => {
    const a = [await get("ptz.pan_pos"), await get("ptz.tilt_pos")].join();
    await sleep(300);
    return a === [await get("ptz.pan_pos"), await get("ptz.tilt_pos")].join() && (await get("ptz.status")) === "0";
  });
}

// A raw request to slewweb; its status code.
const request = (method, path, headers, body) => new Promise((resolve, reject) => {
  const u = new URL(url);
  http.request({ host: u.hostname, port: u.port, method, path, headers }, (res) => { res.resume(); resolve(res.statusCode); })
    .on("error", reject).end(body);
});
const transcript = (from = 0) => readFileSync(`${state}/transcript.log`, "utf8").slice(from);
// Where the last absolute moves since byte `from` send the head ({pan, tilt}, null before any);
// the published position may lag (a short move after a rest leaves its last change unpublished).
function absTargets(from) {
  const last = (axis) => [...transcript(from).matchAll(new RegExp(`call ${axis}ABSMove\\(-?\\d+,-?\\d+,(-?\\d+)\\)`, "g"))].at(-1);
  const pan = last("Pan"), tilt = last("Tilt");
  return pan && tilt ? { pan: Number(pan[1]), tilt: Number(tilt[1]) } : null;
}

// abs: and wait until the head stands there, published (else again by a detour).
async function aim(pan, tilt, zoom) {
  for (let attempt = 0; attempt < 3; attempt++) {
    for (const p of attempt > 0 ? [(pan + 3000) % 65535, pan] : [pan]) {
      await set("ptz.run_mode", `abs:${p},${tilt},${zoom}`);
      if (p === pan) await until(`zoom ${zoom}`, async () => (await get("ptz.lens.get_pos.zoom")) === String(zoom));
      await settled();
    }
    if ((await get("ptz.pan_pos")) === String(pan) && (await get("ptz.tilt_pos")) === String(tilt)) return;
  }
  throw new Error(`the head did not come to ${pan},${tilt}`);
}
const pageFollows = (page) => until("the page to follow the head", async () => page.evaluate(
  (p, t) => window.slewweb.value("ptz.pan_pos") === p && window.slewweb.value("ptz.tilt_pos") === t,
  await get("ptz.pan_pos"), await get("ptz.tilt_pos")));
const onPicture = (page, name) => page.evaluate((n) => window.slewweb.landmarkOnPicture(n), name);
// A landmark's place on the picture once the same on three looks 300 ms apart (frames come late).
const landmarkShown = (page, name) => until(`${name} to hold still on the picture`, async () => {
  const looks = [await onPicture(page, name)];
  while (looks.length < 3) { await sleep(300); looks.push(await onPicture(page, name)); }
  const c = looks[2];
  return looks.every((l) => l && Math.hypot(l.x - c.x, l.y - c.y) < 1) ? c : null;
});

// Clicks a landmark on the picture at a zoom and tilt offset; it must end at the centre.
async function clickToCentre(page, name, zoom, tiltOffsetDeg) {
  const mark = await page.evaluate((n) => window.slewweb.landmark(n), name);
  const half = await page.evaluate((z) => SlewProjection.halfAngles({
    type: 0, focal: 4.7 + ((94 - 4.7) * z) / 16384, baseFocal: 4.7, maxFocal: 94, sensorW: 5.6, sensorH: 3.2,
    dzoom: 0, eis: false, eisFov: 0 }), zoom);
  await aim(Math.round(((mark.pan - 0.45 * half.w + 360) % 360) * 65535 / 360),
    Math.round(((mark.tilt + tiltOffsetDeg * half.h + 27) * 65535) / 360), zoom);
  await pageFollows(page);
  // A frame of the last zoom may linger: wait until the landmark is about where this aim puts it.
  const rad = Math.PI / 180, aimedOff = (0.5 * Math.tan(0.45 * half.w * rad)) / Math.tan(half.w * rad);
  await until(`${name} where the aim puts it`, async () => {
    const seen = await onPicture(page, name);
    return seen && Math.abs(Math.abs(seen.x - seen.width / 2) / seen.width - aimedOff) < 0.04;
  });
  const before = await landmarkShown(page, name);
  if (Math.abs(before.x - before.width / 2) < 0.05 * before.width) throw new Error("landmark already centred");
  const from = transcript().length;
  const box = await (await page.$("#picture")).boundingBox();
  await page.mouse.click(box.x + before.x, box.y + before.y);
  const moved = await until("the view move", () => transcript(from).includes("MoveH:"), 3000).catch(() => false);
  if (!moved && !absTargets(from)) return "skip";
  await until("the head to turn", () => absTargets(from));
  await settled();
  // A one-update view move stays unpublished (docs/video.md): a detour publishes its target.
  const target = absTargets(from);
  if ((await get("ptz.pan_pos")) !== String(target.pan) || (await get("ptz.tilt_pos")) !== String(target.tilt)) {
    await aim(target.pan, target.tilt, zoom);
  }
  await pageFollows(page);
  let off = 1;
  await until(`${name} at the centre`, async () => {
    const after = await landmarkShown(page, name);
    off = Math.hypot(after.x - after.width / 2, after.y - after.height / 2) / after.width;
    return off <= 0.02;
  }, 10000).catch(() => {});
  const where = `${(off * 100).toFixed(2)} % of the width from the centre`;
  if (off > 0.02) throw new Error(`${name} ends ${where}`);
  return `ends ${where}`;
}

async function main() {
  const browser = await puppeteer.launch({ executablePath: process.env.CHROMIUM || "/usr/bin/chromium", headless: true,
    args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"] });
  try {
    const page = await browser.newPage();
    await page.setViewport({ width: 1280, height: 860 });
    const pageErrors = [];
    page.on("pageerror", (e) => pageErrors.push(e.message));
    page.on("console", (m) => { if (m.type() === "error") pageErrors.push(m.text()); });
    const shows = (what, selector, text, ms) => until(what, () => page.$eval(selector, (e, t) => e.textContent.includes(t), text), ms);
    await until("slewd to finish its start-up", async () => (await get("ptz.init.pt")) === "done", 60000);
    await settled();
    await page.goto(url, { waitUntil: "load" });

    // A preview runs at nice 10: a busy machine can hold it back for minutes.
    await check("the timeline shows the preview and follows a setting", async () => {
      await until("the first plot", () => page.$eval("#preview-plot", (e) => e.naturalWidth > 0), 150000);
      await shows("the table", "#preview-table", "why");
      await set("ptz.system.recover_mode", "go_preset:1");
      await set("ptz.system.recover_time", "30");
      await shows("the recover timer in the table", "#preview-table", "recover timer", 150000);
      await set("ptz.system.recover_time", "off");
    });

    await check("the page shows the head's position", async () => {
      await aim(3000, 6000, 0);
      await shows("the pan on the page", "#pan", "(3000)");
      await shows("the tilt on the page", "#tilt", "(6000)");
      await shows("the status in words", "#status", "at rest");
    });

    await check("an arrow held moves the head, its release stops it", async () => {
      const pan = await get("ptz.pan_pos");
      const box = await (await page.$("#left")).boundingBox();
      await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
      await page.mouse.down();
      await sleep(1000);
      await until("ptz.status 1", async () => (await get("ptz.status")) === "1");
      await page.mouse.up();
      await until("ptz.status 0 after the release", async () => (await get("ptz.status")) === "0");
      if ((await get("ptz.pan_pos")) === pan) throw new Error("pan did not move");
    });

    await check("a preset stored from the page can be visited", async () => {
      await aim(20000, 8000, 0);
      await page.$eval("#preset-id", (e) => { e.value = "7"; });
      await page.$eval("#preset-name", (e) => { e.value = "gate view"; });
      await page.click("#preset-store");
      await until("preset 7 on the page", () => page.$('#presets button[data-preset="7"]'));
      await aim(40000, 5000, 0);
      const from = transcript().length;
      await page.click('#presets button[data-preset="7"]');
      const head = await until("the head to set out", () => absTargets(from));
      await settled();
      if (head.pan !== 20000 || head.tilt !== 8000) throw new Error(`went to ${head.pan},${head.tilt}`);
      await until("the preset name on the picture", async () => (await get("system.cam1.osd.preset_name")) === "gate view");
    });

    // Two zooms and two tilts.
    const cases = [["Barn", 0, 0.5], ["Well", 0, -0.4], ["Barn", 6000, -0.5], ["Well", 6000, 0.4]];
    for (const [name, zoom, tilt] of cases) {
      await check(`a click brings ${name} to the centre at zoom ${zoom}, tilt offset ${tilt}`,
        () => clickToCentre(page, name, zoom, tilt));
    }

    await check("foreign requests get 403 and change nothing", async () => {
      const mode = await get("ptz.run_mode"), pan = await get("ptz.pan_pos");
      const { host, port } = new URL(url), body = JSON.stringify({ key: "ptz.run_mode", value: "abs:100,4915" });
      const json = { "Content-Type": "application/json" };
      for (const [what, method, path, headers, data] of [
        ["cross-origin POST", "POST", "/api/set", { ...json, Host: host, Origin: "http://evil.example" }, body],
        ["foreign Host POST", "POST", "/api/set", { ...json, Host: `evil.example:${port}` }, body],
        ["foreign Host GET", "GET", "/", { Host: "evil.example" }],
        ["GET that would write", "GET", "/api/set?key=ptz.run_mode&value=stop", { Host: host }],
        ["POST without JSON", "POST", "/api/set", { "Content-Type": "text/plain", Host: host }, body],
      ]) {
        const status = await request(method, path, headers, data);
        if (status !== 403) throw new Error(`${what} got ${status}`);
      }
      await sleep(300);
      if ((await get("ptz.run_mode")) !== mode || (await get("ptz.pan_pos")) !== pan) throw new Error("the bus changed");
    });

    await check("dragging the person on the plan writes sim.person", async () => {
      await aim(13200, 5400, 0);
      const box = await (await page.$("#plan")).boundingBox();
      await page.mouse.move(box.x + box.width * 0.62, box.y + box.height * 0.3);
      await page.mouse.down();
      await page.mouse.move(box.x + box.width * 0.6, box.y + box.height * 0.32, { steps: 3 });
      await page.mouse.up();
      await until("sim.person on the bus", async () => /^\d+,\d+$/.test(await get("sim.person")));
    });

    await sleep(300);
    await page.screenshot({ path: screenshot });
    if (pageErrors.length) failures.push(`page errors: ${pageErrors.join("; ")}`);
  } finally {
    await browser.close();
  }
}

const overall = setTimeout(() => { console.log("FAIL the whole test took too long"); process.exit(1); }, 240000);
await main().catch((e) => failures.push(`run: ${e.message}`));
clearTimeout(overall);
for (const s of skipped) console.log(`SKIPPED ${s}: the daemon's view move turns nothing in this build (no "MoveH:" trace)`);
console.log(failures.length ? `${failures.length} failed: ${failures.join(", ")}` : "all passed");
process.exit(failures.length ? 1 : 0);
