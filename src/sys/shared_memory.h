// Shared-memory variables: a variable bound to a System V segment, read
// and written in place.
#pragma once

int V_shmat(char *buff, int compile, int ignore);
int V_shmdt(char *buff, int compile, int ignore);
