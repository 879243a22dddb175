// The bus listeners that mirror settings into the control state.
#pragma once

// Binds the 39 listeners and takes the present values, in start-up order;
// ends by loading the schedule.
void RegisterListeners();

// Listener bodies, also called directly at start with a null key.
void OnRecoverTime(char* key, char* value);
void OnMaxSpeed(char* key, char* value);
void OnEastPos(char* key, char* value);
void OnPid(char* key, char* value);
