// The page's state (a copy of the bus, kept live over Server-Sent Events),
// its controls (each a write through /api/set) and its drawings.
"use strict";

(() => {
  const P = SlewProjection, S = SlewScene;
  const bus = new Map();               // every key the page has heard of, with its value
  const $ = (id) => document.getElementById(id);
  const OWNERS = ["direct command", "patrol", "pattern", "scan", "tracking"];
  const STATES = ["at rest", "moving at a speed", "initialising", "speed-dry exercise",
                  "moving to a position", "OIS test"];
  let lastAsked = "", move = null, lastMove = null, drawQueued = false, connected = false;

  // A value of the bus, or fallback when it holds none.
  const text = (key, fallback = "") => (bus.has(key) ? bus.get(key) : fallback);
  // A number of the bus, or fallback when absent or not a number.
  const num = (key, fallback = 0) => {
    const v = parseFloat(text(key));
    return Number.isFinite(v) ? v : fallback;
  };

  // Writes one key through slewweb; a refusal shows in the page's message line.
  async function write(key, value) {
    try {
      const res = await fetch("/api/set", {
        method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify({ key, value }),
      });
      $("message").textContent = res.ok ? "" : `${key}: ${(await res.text()).trim()}`;
    } catch {
      $("message").textContent = "slewweb does not answer";
    }
  }
  // Sends one command on ptz.run_mode.
  const command = (value) => write("ptz.run_mode", value);

  // The lens as the view move sees it, from the bus.
  function lens() {
    const wide = num("sim.lens.focal_wide", 4.7), tele = num("sim.lens.focal_tele", 94);
    const zoom = num("ptz.lens.get_pos.zoom"), zoomMax = num("sim.lens.zoom_max", 16384);
    return {
      type: Math.trunc(num("sim.lens_type", 1)), focal: wide + ((tele - wide) * zoom) / zoomMax,
      baseFocal: num("ptz.lens.base_focal_length"), maxFocal: num("ptz.lens.max_focal_length"),
      sensorW: num("ptz.lens.sensor_w"), sensorH: num("ptz.lens.sensor_h"), dzoom: num("ptz.dzoom.factor"),
      eis: text("encode.cam1.eis.enable") === "on", eisFov: num("encode.cam1.eis.fov"),
    };
  }

  // Where the head looks and how the picture is turned.
  function view() {
    return {
      pan: P.panDeg(num("ptz.pan_pos")), tilt: P.tiltDeg(num("ptz.tilt_pos", 4915)), half: P.halfAngles(lens()),
      mirror: text("image.cam1.mirror") === "on", flip: text("image.cam1.flip") === "on",
    };
  }

  // The simulated person from sim.person ("PAN,TILT[,ZOOM]" in steps), or null.
  function person() {
    const parts = text("sim.person").split(",").map(Number);
    if (parts.length < 2 || !parts.slice(0, 2).every(Number.isFinite)) return null;
    return { pan: P.panDeg(parts[0]), tilt: P.tiltDeg(parts[1]) };
  }

  // Presets from the list ptz.preset.position.N: [{id, pan, tilt, name}].
  function presets() {
    const out = [];
    for (const [key, value] of bus) {
      if (!/^ptz\.preset\.position\.\d+$/.test(key)) continue;
      const m = /^id:(-?\d+),pan:(-?\d+),tilt:(-?\d+),.*?name:(.*)$/.exec(value);
      if (m) out.push({ id: +m[1], pan: +m[2], tilt: +m[3], name: m[4] });
    }
    return out.sort((a, b) => a.id - b.id);
  }

  // Canvas pixel size follows its displayed size; returns the 2D context.
  function fitCanvas(canvas) {
    const ratio = window.devicePixelRatio || 1;
    const w = canvas.clientWidth, h = canvas.clientHeight;
    if (canvas.width !== Math.round(w * ratio) || canvas.height !== Math.round(h * ratio)) {
      canvas.width = Math.round(w * ratio);
      canvas.height = Math.round(h * ratio);
    }
    const ctx = canvas.getContext("2d");
    ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
    return { ctx, w, h };
  }

  // The plan's geometry on its canvas.
  function planFrame() {
    const size = $("plan").clientWidth;
    return { cx: size / 2, cy: size / 2, radius: size / 2 - 16, range: 100 };
  }

  // Redraws the plan, the dials and the numbers from the bus copy.
  function draw() {
    drawQueued = false;
    const v = view(), east = num("ptz.system.east_pos");
    const scene = { east, person: person() };
    const plan = fitCanvas($("plan"));
    S.drawPlan(plan.ctx, planFrame(), v, scene);
    const limits = text("ptz.manual.limit") === "on"
      ? { right: num("ptz.manual.right_limit"), left: num("ptz.manual.left_limit") } : null;
    S.drawPanDial(fitCanvas($("pan-dial")).ctx, $("pan-dial").clientWidth, v.pan, east, limits);
    const arc = fitCanvas($("tilt-arc"));
    S.drawTiltArc(arc.ctx, arc.w, arc.h, v.tilt, num("ptz.system.up_limit", -27), num("ptz.system.down_limit", 180));
    showHead(v);
  }

  // Queues one redraw for the next frame, however many changes arrive.
  function redraw() {
    if (!drawQueued) {
      drawQueued = true;
      requestAnimationFrame(draw);
    }
  }

  // The head's numbers and words.
  function showHead(v) {
    const code = Math.trunc(num("ptz.status"));
    $("status").textContent = bus.has("ptz.status")
      ? `${OWNERS[Math.trunc(code / 10)] || "owner " + Math.trunc(code / 10)}, ${STATES[code % 10] || "state " + (code % 10)} (${code})`
      : "unknown";
    $("mode").textContent = text("ptz.mode_status", "-");
    $("pan").textContent = `${v.pan.toFixed(1)}° (${text("ptz.pan_pos", "-")})`;
    $("tilt").textContent = `${v.tilt.toFixed(1)}° (${text("ptz.tilt_pos", "-")})`;
    const l = lens(), zoomMax = num("sim.lens.zoom_max", 16384);
    $("zoom-fill").style.width = `${(100 * num("ptz.lens.get_pos.zoom")) / zoomMax}%`;
    $("zoom").textContent = `${text("ptz.lens.get_pos.zoom", "-")} · ${l.focal.toFixed(1)} mm · ${(2 * v.half.w).toFixed(1)}° wide`;
    $("record-time").textContent = text("ptz.pattern.record_time", "-");
    $("trackers").textContent = text("sim.tracker.running", "-");
    $("last-move").textContent = lastMove
      ? `${lastMove.asked || "?"} — ${(lastMove.ms / 1000).toFixed(1)} s — ended at pan ${lastMove.pan.toFixed(1)}°, tilt ${lastMove.tilt.toFixed(1)}°`
      : "-";
    $("link").textContent = connected ? "connected" : "no slewd";
    $("link").className = connected ? "up" : "down";
    showPresets();
  }

  // The preset list, rebuilt only when it changed.
  function showPresets() {
    const list = presets(), signature = JSON.stringify(list);
    const ul = $("presets");
    if (ul.dataset.signature === signature) return;
    ul.dataset.signature = signature;
    ul.replaceChildren(...list.map((p) => {
      const li = document.createElement("li");
      li.textContent = `${p.id} ${p.name} `;
      const go = button("go", () => command(`go_preset:${p.id}`));
      go.dataset.preset = p.id;
      li.append(go, button("clear", () => command(`clr_preset:${p.id}`)));
      return li;
    }));
  }

  // A button that runs action when clicked.
  function button(label, action) {
    const b = document.createElement("button");
    b.textContent = label;
    b.addEventListener("click", action);
    return b;
  }

  // Follows the status to tell the last move: what was asked, how long, where it ended.
  function followStatus(value) {
    const code = Math.trunc(Number(value)), moving = code % 10 === 1 || code % 10 === 4;
    if (moving && !move) move = { asked: lastAsked, start: performance.now() };
    if (!moving && code % 10 === 0 && move) {
      const v = view();
      lastMove = { asked: move.asked, ms: performance.now() - move.start, pan: v.pan, tilt: v.tilt };
      move = null;
    }
  }

  // One change of the bus.
  function apply(key, value) {
    bus.set(key, value);
    if (key === "ptz.run_mode") lastAsked = value;
    if (key === "ptz.preset.view_move") lastAsked = `view ${value}`;
    if (key === "ptz.status") followStatus(value);
    redraw();
  }

  // The timeline under the picture: slewweb runs the preview again after a
  // setting it depends on changed and says so with a "preview" event.
  async function showPreview() {
    const answer = await fetch("/api/preview", { cache: "no-store" });
    if (!answer.ok) return;
    const { generation, table } = await answer.json();
    if (generation === 0) return;
    $("preview-table").textContent = table;
    $("preview-plot").src = `/api/preview.svg?g=${generation}`;
    $("preview-state").textContent = `(preview ${generation})`;
  }

  // Live updates: a snapshot of the bus, then every change.
  function listen() {
    const events = new EventSource("/api/events");
    events.addEventListener("snapshot", (e) => {
      const data = JSON.parse(e.data);
      bus.clear();
      for (const [k, v] of Object.entries(data.keys)) bus.set(k, v);
      connected = data.up;
      redraw();
    });
    events.addEventListener("lost", () => { connected = false; redraw(); });
    events.addEventListener("preview", showPreview);
    events.onmessage = (e) => {
      const { k, v } = JSON.parse(e.data);
      apply(k, v);
    };
    events.onerror = () => { connected = false; redraw(); };
  }

  // The picture stream ends when slewvideo or slewweb goes away: ask again a second later.
  function keepPicture() {
    const img = $("picture");
    const again = () => setTimeout(() => { img.src = `/video.mjpeg?t=${Date.now()}`; }, 1000);
    img.addEventListener("error", again);
    img.addEventListener("abort", again);
  }

  // A click on the picture: the head turns so that the point comes to the centre.
  function onPictureClick(e) {
    const rect = $("picture").getBoundingClientRect();
    const clamp = (v) => Math.min(10000, Math.max(0, Math.round(v)));
    const w = clamp(((e.clientX - rect.left) / rect.width) * 10000);
    const h = clamp(((e.clientY - rect.top) / rect.height) * 10000);
    write("ptz.preset.view_move", `${w},${h}`);
  }

  // Arrow and zoom buttons: manual: while pressed, stop on release.
  function holdButton(el, pan, tilt, zoom) {
    let held = false;
    const speed = () => Number($("speed").value);
    const press = (e) => {
      e.preventDefault();
      held = true;
      command(`manual:${pan * speed()},${tilt * speed()},${zoom}`);
    };
    const release = () => {
      if (!held) return;
      held = false;
      command("stop");
    };
    el.addEventListener("pointerdown", press);
    for (const name of ["pointerup", "pointerleave", "pointercancel"]) el.addEventListener(name, release);
  }

  // Dragging the person on the plan writes sim.person: one write at a time,
  // the latest place waiting behind it.
  function dragPerson() {
    const plan = $("plan");
    let dragging = false, sending = false, waiting = null;
    const send = async (value) => {
      sending = true;
      await write("sim.person", value);
      sending = false;
      if (waiting !== null) {
        const next = waiting;
        waiting = null;
        send(next);
      }
    };
    const place = (e) => {
      const rect = plan.getBoundingClientRect();
      const d = S.planDirection(planFrame(), num("ptz.system.east_pos"), e.clientX - rect.left, e.clientY - rect.top);
      const value = `${P.panSteps(d.pan)},${P.tiltSteps(S.personTilt(Math.min(d.dist, planFrame().range)))}`;
      if (sending) waiting = value;
      else send(value);
    };
    plan.addEventListener("pointerdown", (e) => { dragging = true; plan.setPointerCapture(e.pointerId); place(e); });
    plan.addEventListener("pointermove", (e) => { if (dragging) place(e); });
    plan.addEventListener("pointerup", () => { dragging = false; });
  }

  // The number typed in a field.
  const field = (id) => Math.trunc(Number($(id).value));

  // Wires every control.
  function wire() {
    $("picture").addEventListener("click", onPictureClick);
    holdButton($("left"), 1, 0, 0);
    holdButton($("right"), -1, 0, 0);
    holdButton($("up"), 0, -1, 0);
    holdButton($("down"), 0, 1, 0);
    holdButton($("tele"), 0, 0, 1);
    holdButton($("wide"), 0, 0, -1);
    $("stop").addEventListener("click", () => command("stop"));
    $("preset-store").addEventListener("click", () => {
      const name = $("preset-name").value.replace(/[\r\n]/g, " ");
      command(`set_preset:id:${field("preset-id")},name:${name}`);
    });
    $("patrol-go").addEventListener("click", () => command(`patrol:${field("patrol-id")}`));
    $("scan-go").addEventListener("click", () => command(`scan:${field("scan-id")}`));
    $("pattern-play").addEventListener("click", () => command(`pattern:${field("pattern-id")}`));
    $("pattern-record").addEventListener("click", () => write("ptz.pattern.action", `rec${field("pattern-id")}`));
    $("pattern-stop").addEventListener("click", () => write("ptz.pattern.action", "stop"));
    $("track-on").addEventListener("click", () => command("track:on"));
    $("track-off").addEventListener("click", () => command("track:off"));
    dragPerson();
    keepPicture();
    window.addEventListener("resize", redraw);
  }

  // Where a landmark stands on the picture now, found by its colour in the
  // frame shown, in CSS pixels of the picture element; null when not in sight.
  function landmarkOnPicture(name) {
    const mark = S.LANDMARKS.find((m) => m.name === name), img = $("picture");
    if (!mark || !img.naturalWidth) return null;
    const c = document.createElement("canvas");
    c.width = img.naturalWidth;
    c.height = img.naturalHeight;
    const ctx = c.getContext("2d");
    ctx.drawImage(img, 0, 0);
    const px = ctx.getImageData(0, 0, c.width, c.height).data;
    const want = [1, 3, 5].map((i) => parseInt(mark.color.slice(i, i + 2), 16));
    let sx = 0, sy = 0, n = 0;
    for (let i = 0; i < px.length; i += 4) {
      if (want.every((v, k) => Math.abs(px[i + k] - v) <= 40)) {
        const p = i / 4;
        sx += p % c.width;
        sy += Math.floor(p / c.width);
        n++;
      }
    }
    if (n < 20) return null;
    const scale = img.clientWidth / c.width;
    return { x: (sx / n + 0.5) * scale, y: (sy / n + 0.5) * (img.clientHeight / c.height),
             width: img.clientWidth, height: img.clientHeight };
  }

  // What the browser test reads: the bus copy, the landmarks, and where a
  // landmark shows on the picture.
  window.slewweb = {
    value: (key) => (bus.has(key) ? bus.get(key) : null),
    landmarkOnPicture,
    landmark: (name) => S.LANDMARKS.find((m) => m.name === name),
  };

  wire();
  listen();
  showPreview();
})();
