// Motor set-up. The model tables land with the motor set-up work; until
// then the controllers keep what they have.
#include "mechanism/motor_setup.h"

int32_t giStaticP = 0x1208;
int32_t giStaticI = 0x20;
int32_t giStaticD = 0x274a;

void InitMoterRegister() {}
