// The field of view that the daemon's view move works with, for the plan's
// cone and the zoom readout. The picture itself, and the projection a click
// inverts, are drawn by slewvideo (tools/render/).
"use strict";

const SlewProjection = (() => {
  const STEPS = 65535;                // steps to the full turn, both axes
  const RAD = Math.PI / 180;
  const TABLE_K = 3.1415926 / 180;    // the view move's own degree factor for lens tables
  // Full angles in degrees at the wide and tele ends: horizontal, then vertical.
  const LENS_TABLE = {
    7: [60.4, 2.0, 35.9, 1.2],
    8: [65.4, 2.0, 39.0, 1.1],
    9: [57.9, 3.0, 44.4, 2.3],
  };

  // Pan steps to degrees, growing to the left.
  const panDeg = (steps) => (steps * 360) / STEPS;
  // Tilt steps to degrees below the horizon.
  const tiltDeg = (steps) => (steps * 360) / STEPS - 27;
  // Degrees to pan steps, inside one turn.
  const panSteps = (deg) => Math.round((((deg % 360) + 360) % 360) * STEPS / 360) % STEPS;
  // Degrees below the horizon to tilt steps.
  const tiltSteps = (deg) => Math.round(((deg + 27) * STEPS) / 360);

  // Sensor size as a straight line over focal length, for a lens of the table.
  function sensorLine(angleBase, angleMax, focalBase, focalMax) {
    const w1 = Math.fround((focalBase + focalBase) * Math.tan((angleBase * TABLE_K) / 2));
    const w2 = Math.fround((focalMax + focalMax) * Math.tan((angleMax * TABLE_K) / 2));
    const slope = (w1 - w2) / (focalBase - focalMax);
    return { slope, offset: w1 - ((w1 - w2) * focalBase) / (focalBase - focalMax) };
  }

  // Half angles of the picture in degrees, {w, h}, for a lens described as
  // {type, focal, baseFocal, maxFocal, sensorW, sensorH, dzoom, eis, eisFov}.
  function halfAngles(lens) {
    let f = lens.focal > 0.1 ? lens.focal : lens.baseFocal > 0.1 ? lens.baseFocal : 6.5;
    f *= lens.dzoom > 1 ? ((lens.dzoom - 1) * 7) / 12 + 1 : 1;
    let w = 7.75, h = 4.36;
    if (lens.type === 0) {
      if (lens.sensorW > 0) w = lens.sensorW;
      if (lens.sensorH > 0) h = lens.sensorH;
    } else {
      const row = LENS_TABLE[lens.type] || [0, 0, 0, 0];
      const across = sensorLine(row[0], row[1], lens.baseFocal, lens.maxFocal);
      const up = sensorLine(row[2], row[3], lens.baseFocal, lens.maxFocal);
      w = across.slope * f + across.offset;
      h = up.slope * f + up.offset;
    }
    let aw = Math.atan(w / (f + f)) / RAD, ah = Math.atan(h / (f + f)) / RAD;
    if (lens.eis) {
      const e = Math.sqrt(lens.eisFov >= 0.1 ? lens.eisFov : 0.75);
      aw *= e;
      ah *= e;
    }
    return { w: aw, h: ah };
  }

  return { STEPS, panDeg, tiltDeg, panSteps, tiltSteps, halfAngles };
})();
