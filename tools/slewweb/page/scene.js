// The scene around the head seen from above and the head's dials: the plan,
// the pan dial and the tilt arc. The picture through the lens is slewvideo's.
"use strict";

const SlewScene = (() => {
  const P = SlewProjection;
  const RAD = Math.PI / 180;
  const MAST_HEIGHT = 6;  // metres of the head above the ground, for the person's distance
  const COMPASS = ["East", "North-East", "North", "North-West", "West", "South-West", "South", "South-East"];

  // Fixed landmarks as slewvideo draws them (tools/render/scene.cpp): pan and
  // tilt in degrees (tilt below the horizon), distance in metres for the plan.
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
    LANDMARKS, personTilt, drawPlan, planDirection, drawPanDial, drawTiltArc,
  };
})();
