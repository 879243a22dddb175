// Definitions and start values of the control state.
#include "control/control.h"

Shared giRunMode{0};
Shared giNewMode{0};

Shared giManualPan{0};
Shared giManualTilt{0};
Shared giManualZoom{0};
Shared giPresetTarget{0};
Shared giPatternTarget{0};
Shared giPatrolTarget{0};
Shared giScanTarget{0};
Shared giAbsPan{0};
Shared giAbsTilt{0};
Shared giAbsZoom{0};
Shared giRelPan{0};
Shared giRelTilt{0};

Shared giPanPos{0};
Shared giTiltPos{0};
Shared giLensZoom{0};
Shared giZoomPos{0};
Shared giEastPos{0};

Shared giPatternRun{0};
Shared giPatternRec{0};
Shared giPatternView{0};
Shared giPatternPreset{0};
Shared iTrackStatus{0};
Shared giTrackPresetId{-1};
Shared giPresetTrackEnable{0};
Shared giPresetTrackId{0};
Shared giTrackLastPan{-1};
Shared giTrackLastTilt{-1};
Shared giTrackLastZoom{-1};
Shared giOisPan{0};
Shared giOisTilt{0};
Shared giModeStatus{0};

Shared giMaxSpeed{720};
Shared giManualPanSpeed{90};
Shared giManualTiltSpeed{90};
Shared giManualProportion{0};
Shared giAutoFlip{0};
Shared giImageFlip{0};
Shared giImageMirror{0};
Shared giSystemFreeze{0};
Shared giEisEnable{0};
std::atomic<double> gfEisFov{0.0};
Shared giOisEnable{0};
Shared giPidP{0};
Shared giPidI{0};
Shared giPidD{0};

Shared giRecoverTime{0};
Shared giScheduleRecoverTime{5};
Shared giRecoverDeadline{-1};
Shared giScheduleDeadline{0};
Shared giRecoverArmPreset{0};
Shared giScheduleArmPreset{0};
Shared giRecoverArmAbs{0};
Shared giScheduleArmAbs{0};

Shared giPatrolReload{0};
Shared giScheduleReload{0};
Shared giViewMove{0};
