// The shared-library loader as the fully static interpreter sees it: none.
// SQLite's Unix layer refers to dlopen for loadable extensions, which no
// page can enable; a static glibc would link its dlopen for that reference,
// which only works with the very glibc build it was linked against. The
// static link renames the references (-Wl,--wrap=dlopen and the rest) to
// these, which refuse.
namespace {

const char NO_LOADER[] = "vorn is linked statically: no shared libraries can be loaded";

}   // namespace

extern "C" {

void *__wrap_dlopen(const char *, int) {
    return nullptr;
}

void *__wrap_dlsym(void *, const char *) {
    return nullptr;
}

int __wrap_dlclose(void *) {
    return 0;
}

char *__wrap_dlerror() {
    return const_cast<char *>(NO_LOADER);
}

}   // extern "C"
