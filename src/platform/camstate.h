// Camera-state memory shared with the camera side, and the model-feature
// library.
#pragma once

extern "C" {

int PTZShmInit(void);
int PutPan(int pos);
int PutTilt(int pos);
int GetPan(int* pos);
int GetTilt(int* pos);
int GetZoom(int* zoom);
int GetDZoom(int* dzoom);          // 0 = no digital zoom
int GetFocalLength(double* focal);
int GetLensStatus(int* status);    // 0 idle, 2 moving, 4 done
int GetLensType(void);             // -1 unset
int SetLensType(int type);
int PutPTStatus(int code);
int OIS_Pause(int resume);         // 0 pause, 1 resume

// Model features.
int get_lenstype(void);
const char* get_modelid(void);

}
