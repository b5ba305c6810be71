// Placeholder bodies until this module is written.
#include "db/sql_commands.h"

int V_sqlcase;
int V_sqlTRAP;
int V_sqlTRANS;
int V_sqlFUNC;
char TRAPfunc[64];
int V_sqlcode;
int V_rowcount;
int V_lines;
long V_INSERT_ID;
int V_sql(V_FILE *fp, char *buff, int compile, int ignore) { return -1; }
int V_sqlexec(char *buff, int compile, int ignore) { return -1; }
int V_sqlnames(char *buff, int compile, int ignore) { return -1; }
int V_sqltrap(char *buff, int compile, int ignore) { return -1; }
