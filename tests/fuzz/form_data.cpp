// Fuzz target: the multipart/form-data decoder. An input is the request
// body, its first line the boundary as the decoder reads it, and its size
// the declared CONTENT_LENGTH. Uploads land in a scratch directory made at
// start-up and emptied after every input.
#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "form/form_data.h"
#include "form/urlencoded.h"
#include "harness.h"

namespace {

std::string scratch;

void empty_scratch() {
    DIR *dir = opendir(scratch.c_str());
    if (!dir) return;
    while (dirent *e = readdir(dir)) {
        std::string name = e->d_name;
        if (name != "." && name != "..") unlink((scratch + "/" + name).c_str());
    }
    closedir(dir);
}

void remove_scratch() {
    empty_scratch();
    rmdir(scratch.c_str());
}

}   // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    char dir[] = "/tmp/vorn-fuzz-form-data.XXXXXX";
    if (!mkdtemp(dir)) abort();
    scratch = dir;
    setenv("TMP_DIR", dir, 1);
    atexit(remove_scratch);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static std::vector<char> declared;
    put_env(declared, "CONTENT_LENGTH", std::to_string(size));
    with_stdin(data, size, [] { E_POST_parser(ent); });
    for (int i = 0; i < V_ENT_MAX && ent[i].name; i++) {
        free(ent[i].name);
        free(ent[i].val);
        ent[i].name = ent[i].val = nullptr;
    }
    empty_scratch();
    return 0;
}
