// Process entry of the daemon.
#pragma once

// The daemon's main: command line, start-up, loop. Returns the exit status.
// The program's own `main` (camera or simulated) calls it.
int slewd_main(int argc, char** argv);
