// Process and system commands: shell, fork, unlink, chdir, sleep, usleep.
#pragma once

int V_shell(char *buff, int compile, int ignore);
int V_fork(char *buff, int compile, int ignore);
int V_unlink(char *buff, int compile, int ignore);
int V_chdir(char *buff, int compile, int ignore);
int V_sleep(char *buff, int compile, int ignore);
int V_usleep(char *buff, int compile, int ignore);
