// Cursor ids: the ten names "c0".."c9" handed to SQL commands, and the
// lazy opening of the database session on the first request.
#pragma once

const char *V_get_cid();
void V_free_cid(const char *cid);
void V_free_all();
const char *V_get_base();
