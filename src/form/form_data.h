// Decoding of multipart/form-data POST bodies: fields into the form table,
// uploads into files under the temporary directory.
#pragma once

struct entry;

int E_POST_parser(entry *ent);
