// The $(...) names whose values come from above the value layer: call: (a
// user function's <@return>), ftell: (a stream's position), V_ROWS,
// V_SQLCODE, V_INSERT_ID (the last SQL command) and DIR (the page run).
#pragma once
#include "values/substitution.h"

// The rows for V_set_value_rows, which the driver installs at start-up.
extern const V_VALUE_ROW v_INTERP_VALUES[];
