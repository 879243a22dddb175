// The synthetic scene around the head and the drawings made of it: the
// picture through the lens, the plan from above, the pan dial and tilt arc.
"use strict";

const SlewScene = (() => {
  const P = SlewProjection;
  const RAD = Math.PI / 180;
  const MAST_HEIGHT = 6;  // metres of the head above the ground, for the person's distance
  const COMPASS = ["East", "North-East", "North", "North-West", "West", "South-West", "South", "South-East"];

  // Fixed landmarks: pan and tilt in degrees as the head sees them (tilt below
  // the horizon), distance in metres for the plan.
  const LANDMARKS = [
    { name: "Mast", pan: 20, tilt: -8, dist: 80, color: "#c0392b" },
    { name: "Barn", pan: 75, tilt: 4, dist: 40, color: "#8e5a2b" },
    { name: "Gate", pan: 150, tilt: 12, dist: 25, color: "#2c3e50" },
    { name: "Well", pan: 230, tilt: 22, dist: 15, color: "#2471a3" },
    { name: "Tower", pan: 300, tilt: -15, dist: 90, color: "#7d3c98" },
  ];

  // Pan in degrees of the compass word i, from the pan step that is East.
  const compassPan = (east, i) => P.panDeg((east + i * 8191) % P.STEPS);

  // Distance in metres of a person standing tilt degrees below the horizon.
  const personDistance = (tilt) => (tilt > 0.5 ? MAST_HEIGHT / Math.tan(tilt * RAD) : 700);
  // Tilt in degrees of a person standing dist metres away.
  const personTilt = (dist) => Math.atan(MAST_HEIGHT / Math.max(dist, 1)) / RAD;

  // A picture point of a direction in canvas pixels, or null.
  function toCanvas(view, w, h, pan, tilt) {
    const p = P.project(pan, tilt, view);
    return p && { x: (p.x / 10000) * w, y: (p.y / 10000) * h };
  }

  // Sky and ground, split along the horizon.
  function drawHorizon(ctx, view, w, h) {
    ctx.fillStyle = "#a9cbe8";
    ctx.fillRect(0, 0, w, h);
    const a = toCanvas(view, w, h, view.pan - 30, 0), b = toCanvas(view, w, h, view.pan + 30, 0);
    const below = toCanvas(view, w, h, view.pan, Math.min(view.tilt + 30, 89));
    ctx.fillStyle = "#86a86a";
    if (!a || !b) {
      if (view.tilt > 0) ctx.fillRect(0, 0, w, h);
      return;
    }
    // The half plane of the horizon line on the side of a point below it.
    const dx = b.x - a.x, dy = b.y - a.y, len = Math.hypot(dx, dy) || 1;
    let nx = -dy / len, ny = dx / len;
    if (below && (below.x - a.x) * nx + (below.y - a.y) * ny < 0) { nx = -nx; ny = -ny; }
    const far = 4 * (w + h), ux = dx / len, uy = dy / len;
    ctx.beginPath();
    ctx.moveTo(a.x - ux * far, a.y - uy * far);
    ctx.lineTo(a.x + ux * far, a.y + uy * far);
    ctx.lineTo(a.x + ux * far + nx * far, a.y + uy * far + ny * far);
    ctx.lineTo(a.x - ux * far + nx * far, a.y - uy * far + ny * far);
    ctx.fill();
    ctx.strokeStyle = "#4d6b3a";
    ctx.beginPath();
    ctx.moveTo(a.x - ux * far, a.y - uy * far);
    ctx.lineTo(a.x + ux * far, a.y + uy * far);
    ctx.stroke();
  }

  // A labelled vertical post from tilt low up to tilt high.
  function drawPost(ctx, view, w, h, pan, low, high, color, label) {
    const foot = toCanvas(view, w, h, pan, low), top = toCanvas(view, w, h, pan, high);
    if (!foot || !top) return;
    ctx.strokeStyle = color;
    ctx.lineWidth = 3;
    ctx.beginPath();
    ctx.moveTo(foot.x, foot.y);
    ctx.lineTo(top.x, top.y);
    ctx.stroke();
    ctx.lineWidth = 1;
    ctx.fillStyle = color;
    ctx.fillText(label, top.x + 4, top.y);
  }

  // A landmark: a disc one degree across, a cross at its point, its name.
  function drawLandmark(ctx, view, w, h, mark) {
    const c = toCanvas(view, w, h, mark.pan, mark.tilt);
    if (!c) return;
    const edge = toCanvas(view, w, h, mark.pan, mark.tilt - 1);
    const r = Math.max(5, edge ? Math.hypot(edge.x - c.x, edge.y - c.y) : 5);
    ctx.fillStyle = mark.color;
    ctx.beginPath();
    ctx.arc(c.x, c.y, r, 0, 2 * Math.PI);
    ctx.fill();
    ctx.strokeStyle = "#fff";
    ctx.beginPath();
    ctx.moveTo(c.x - r, c.y); ctx.lineTo(c.x + r, c.y);
    ctx.moveTo(c.x, c.y - r); ctx.lineTo(c.x, c.y + r);
    ctx.stroke();
    ctx.fillStyle = "#111";
    ctx.fillText(mark.name, c.x + r + 3, c.y - r);
  }

  // The simulated person: feet where they stand, 1.8 m tall at their distance.
  function drawPerson(ctx, view, w, h, person) {
    const dist = personDistance(person.tilt);
    const rise = Math.atan(1.8 / dist) / RAD;
    const feet = toCanvas(view, w, h, person.pan, person.tilt);
    const head = toCanvas(view, w, h, person.pan, person.tilt - rise);
    if (!feet || !head) return;
    const tall = Math.max(12, Math.hypot(head.x - feet.x, head.y - feet.y));
    const x = feet.x, y = feet.y;
    ctx.strokeStyle = "#e67e22";
    ctx.fillStyle = "#e67e22";
    ctx.lineWidth = Math.max(2, tall / 12);
    ctx.beginPath();
    ctx.moveTo(x - tall / 5, y); ctx.lineTo(x, y - tall * 0.45); ctx.lineTo(x + tall / 5, y);
    ctx.moveTo(x, y - tall * 0.45); ctx.lineTo(x, y - tall * 0.8);
    ctx.moveTo(x - tall / 4, y - tall * 0.65); ctx.lineTo(x + tall / 4, y - tall * 0.65);
    ctx.stroke();
    ctx.beginPath();
    ctx.arc(x, y - tall * 0.9, tall * 0.1, 0, 2 * Math.PI);
    ctx.fill();
    ctx.lineWidth = 1;
  }

  // The picture: scene, centre mark and the camera's overlay texts.
  function drawPicture(ctx, w, h, view, scene) {
    ctx.font = "13px sans-serif";
    ctx.textBaseline = "middle";
    drawHorizon(ctx, view, w, h);
    for (let i = 0; i < 8; i++) {
      drawPost(ctx, view, w, h, compassPan(scene.east, i), 1, -4, "#333", COMPASS[i]);
    }
    for (const mark of LANDMARKS) drawLandmark(ctx, view, w, h, mark);
    if (scene.person) drawPerson(ctx, view, w, h, scene.person);
    ctx.strokeStyle = "rgba(255,255,255,0.8)";
    ctx.beginPath();
    ctx.moveTo(w / 2 - 12, h / 2); ctx.lineTo(w / 2 + 12, h / 2);
    ctx.moveTo(w / 2, h / 2 - 12); ctx.lineTo(w / 2, h / 2 + 12);
    ctx.stroke();
    ctx.font = "bold 16px monospace";
    ctx.fillStyle = "#fff";
    ctx.strokeStyle = "#000";
    ctx.lineWidth = 3;
    for (const [text, x, align] of [[scene.osdPreset, 12, "left"], [scene.osdDirection, w - 12, "right"]]) {
      ctx.textAlign = align;
      ctx.strokeText(text, x, 20);
      ctx.fillText(text, x, 20);
    }
    ctx.textAlign = "left";
    ctx.lineWidth = 1;
  }

  // Plan position of a direction (pan degrees) at a distance, North up.
  function planPoint(plan, east, pan, dist) {
    const a = (pan - P.panDeg(east)) * RAD;  // counter-clockwise from East
    const r = (Math.min(dist, plan.range) / plan.range) * plan.radius;
    return { x: plan.cx + r * Math.cos(a), y: plan.cy - r * Math.sin(a) };
  }

  // Pan degrees and distance of a point of the plan (the inverse of planPoint).
  function planDirection(plan, east, x, y) {
    const dx = x - plan.cx, dy = plan.cy - y;
    const pan = Math.atan2(dy, dx) / RAD + P.panDeg(east);
    return { pan: ((pan % 360) + 360) % 360, dist: (Math.hypot(dx, dy) / plan.radius) * plan.range };
  }

  // The plan from above: range rings, the field of view as a cone, the
  // landmarks and the person.
  function drawPlan(ctx, plan, view, scene) {
    ctx.fillStyle = "#eef3e8";
    ctx.fillRect(0, 0, plan.cx * 2, plan.cy * 2);
    ctx.strokeStyle = "#c9d3c0";
    for (let k = 1; k <= 4; k++) {
      ctx.beginPath();
      ctx.arc(plan.cx, plan.cy, (plan.radius * k) / 4, 0, 2 * Math.PI);
      ctx.stroke();
    }
    const a = (view.pan - P.panDeg(scene.east)) * RAD, half = view.half.w * RAD;
    ctx.fillStyle = "rgba(241,196,15,0.35)";
    ctx.beginPath();
    ctx.moveTo(plan.cx, plan.cy);
    ctx.arc(plan.cx, plan.cy, plan.radius, -(a + half), -(a - half));
    ctx.closePath();
    ctx.fill();
    ctx.font = "11px sans-serif";
    ctx.fillStyle = "#555";
    ctx.fillText("N", plan.cx - 4, plan.cy - plan.radius - 6);
    for (const mark of LANDMARKS) {
      const p = planPoint(plan, scene.east, mark.pan, mark.dist);
      ctx.fillStyle = mark.color;
      ctx.fillRect(p.x - 4, p.y - 4, 8, 8);
      ctx.fillText(mark.name, p.x + 6, p.y);
    }
    if (scene.person) {
      const p = planPoint(plan, scene.east, scene.person.pan, personDistance(scene.person.tilt));
      ctx.fillStyle = "#e67e22";
      ctx.beginPath();
      ctx.arc(p.x, p.y, 7, 0, 2 * Math.PI);
      ctx.fill();
    }
    ctx.fillStyle = "#000";
    ctx.beginPath();
    ctx.arc(plan.cx, plan.cy, 4, 0, 2 * Math.PI);
    ctx.fill();
  }

  // The pan dial: compass words, the manual pan limits, the head's heading.
  function drawPanDial(ctx, size, pan, east, limits) {
    const c = size / 2, r = size / 2 - 22;
    const at = (deg, rr) => {
      const a = (deg - P.panDeg(east)) * RAD;
      return { x: c + rr * Math.cos(a), y: c - rr * Math.sin(a) };
    };
    ctx.clearRect(0, 0, size, size);
    ctx.strokeStyle = "#888";
    ctx.beginPath();
    ctx.arc(c, c, r, 0, 2 * Math.PI);
    ctx.stroke();
    if (limits) {
      // Allowed from the right limit leftwards (growing steps) to the left limit.
      const from = (P.panDeg(limits.right) - P.panDeg(east)) * RAD;
      const to = (P.panDeg(limits.left) - P.panDeg(east)) * RAD;
      ctx.strokeStyle = "#27ae60";
      ctx.lineWidth = 6;
      ctx.beginPath();
      ctx.arc(c, c, r, -from, -to, true);
      ctx.stroke();
      ctx.lineWidth = 1;
    }
    ctx.font = "10px sans-serif";
    ctx.textAlign = "center";
    ctx.textBaseline = "middle";
    ctx.fillStyle = "#333";
    for (let i = 0; i < 8; i++) {
      const p = at(compassPan(east, i), r + 12);
      ctx.fillText(COMPASS[i].replace(/[a-z]+/g, ""), p.x, p.y);
    }
    const tip = at(pan, r - 4);
    ctx.strokeStyle = "#c0392b";
    ctx.lineWidth = 3;
    ctx.beginPath();
    ctx.moveTo(c, c);
    ctx.lineTo(tip.x, tip.y);
    ctx.stroke();
    ctx.lineWidth = 1;
    ctx.textAlign = "left";
  }

  // The tilt arc, seen from the side: up at the top, the limits, the head.
  function drawTiltArc(ctx, w, h, tilt, up, down) {
    const cx = w / 2, cy = h / 2, r = Math.min(w, h) / 2 - 10;
    const at = (deg, rr) => ({ x: cx + rr * Math.cos(deg * RAD), y: cy + rr * Math.sin(deg * RAD) });
    ctx.clearRect(0, 0, w, h);
    ctx.strokeStyle = "#888";
    ctx.beginPath();
    ctx.arc(cx, cy, r, -27 * RAD, 180 * RAD);
    ctx.stroke();
    ctx.strokeStyle = "#27ae60";
    ctx.lineWidth = 6;
    ctx.beginPath();
    ctx.arc(cx, cy, r, up * RAD, down * RAD);
    ctx.stroke();
    ctx.lineWidth = 1;
    ctx.strokeStyle = "#bbb";
    const horizon = at(0, r + 8);
    ctx.beginPath();
    ctx.moveTo(cx, cy); ctx.lineTo(horizon.x, horizon.y);
    ctx.stroke();
    const tip = at(tilt, r - 4);
    ctx.strokeStyle = "#c0392b";
    ctx.lineWidth = 3;
    ctx.beginPath();
    ctx.moveTo(cx, cy); ctx.lineTo(tip.x, tip.y);
    ctx.stroke();
    ctx.lineWidth = 1;
  }

  return {
    LANDMARKS, personTilt, drawPicture, drawPlan, planDirection, drawPanDial, drawTiltArc,
  };
})();
