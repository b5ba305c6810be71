// Resolves the libpq table by name. A library that lacks a function is
// closed again and refused whole, so the engine never meets a null pointer;
// a loaded one stays for the life of the process.
#include "db/libpq_loader.h"

#include <cstdio>
#include <dlfcn.h>

int V_libpq_load(const char *library, V_LIBPQ *table, char *err, int size) {
    // RTLD_NOW: a library that cannot bind its own symbols fails here, at
    // connect, and not in the middle of a query
    void *handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char *why = dlerror();
        snprintf(err, size,
                 "PostgreSQL client library %s is not installed (Debian package libpq5): %s",
                 library, why ? why : "not found");
        return -1;
    }
    V_LIBPQ loaded;
#define V_LIBPQ_RESOLVE(name)                                                                      \
    loaded.name = reinterpret_cast<decltype(loaded.name)>(dlsym(handle, #name));                   \
    if (!loaded.name) {                                                                            \
        snprintf(err, size, "PostgreSQL client library %s has no function %s", library, #name);    \
        dlclose(handle);                                                                           \
        return -1;                                                                                 \
    }
    V_LIBPQ_FUNCTIONS(V_LIBPQ_RESOLVE)
#undef V_LIBPQ_RESOLVE
    *table = loaded;
    return 0;
}
