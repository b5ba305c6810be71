// The SQL commands of the page language: <@sql> row loops, <@sqlexec>,
// <@sqlnames>, <@sqltrap>, and the status values pages read.
#pragma once

struct V_FILE;

extern int V_sqlcase;    // [0] column names lower (0) or upper (1) case
extern int V_sqlTRAP;    // [1] database errors are fatal
extern int V_sqlTRANS;   // [1] begin/commit/rollback statements are run
extern int V_sqlFUNC;    // [0] a trap function is set
extern char TRAPfunc[64];
extern int V_sqlcode;    // V_SQLCODE
extern int V_rowcount;   // V_ROWS
extern int V_lines;
extern long V_INSERT_ID;

int V_sql(V_FILE *fp, char *buff, int compile, int ignore);
int V_sqlexec(char *buff, int compile, int ignore);
int V_sqlnames(char *buff, int compile, int ignore);
int V_sqltrap(char *buff, int compile, int ignore);
