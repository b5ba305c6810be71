// The block runner that every block command reads its body with, and the
// <@while> loop in its plain, values and words forms.
#pragma once

struct V_FILE;

extern int Continue;
extern int Break;
extern int ContinueBreak;

int V_notfound(V_FILE *fp, int compile, int ignore);
int V_while(V_FILE *fp, char *buff, int compile, int ignore);
int V_while_loop(V_FILE *fp, int compile);
int V_while_values(V_FILE *fp, const char *name, int compile);
int V_while_words(V_FILE *fp, const char *name, const char *sep, int compile);
