// Shared-memory variables: <@shmat> binds a variable to a stretch of a
// System V segment, <@shmdt> releases a binding.
#include "sys/shared_memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "driver/diagnostics.h"
#include "values/arguments.h"
#include "values/buffers.h"
#include "values/command_entry.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

constexpr int V_SHM_MAX = 16;
constexpr int ARG_AREA = 1000;

struct V_SHM {
    char name[32];   // never written: every slot's name stays empty
    void *shm;       // attach address; null marks a free slot
    V_USER *user;    // the variable bound to it
};

V_SHM v_SHM[V_SHM_MAX];

// Up to six arguments into one 1000-byte area.
void take_args(const char *text, char (*word)[ARG_AREA], int count) {
    int used = 0;
    char one[V_LINE_MAX];
    for (int i = 0; i < count; i++) {
        int pos = V_arg_string(text, one);
        if (pos)
            text += pos;
        else
            one[0] = '\0';
        int room = ARG_AREA - used - 1;
        if (room < 0) room = 0;
        snprintf(word[i], ARG_AREA, "%.*s", room, one);
        used += (int)strlen(word[i]) + 1;
    }
}

// Detaches the first attached slot with that name and drops its variable.
void release(const char *name) {
    for (auto &slot : v_SHM) {
        if (!slot.shm || strcmp(slot.name, name) != 0) continue;
        if (slot.user) {
            AVL_remove(&v_BUFFERS.vtree, slot.user->name);
            V_heap_free(slot.user->hp);
            slot.user->hp = nullptr;
        }
        shmdt(slot.shm);
        slot.shm = nullptr;
        slot.user = nullptr;
        return;
    }
}

V_SHM *free_slot() {
    for (auto &slot : v_SHM)
        if (!slot.shm) return &slot;
    return nullptr;
}

// Attaches the segment of key into slot; the message names what failed.
const char *attach(V_SHM *slot, long key, long size, long offset, long length) {
    if (size < 1 || offset < 0 || length < 0 || length > 32767 || offset + length > size)
        return "## Cannot get SHM...";   // the stretch must lie inside the segment
    int id = shmget((key_t)key, (size_t)size, IPC_CREAT | 01777);
    if (id == -1) return "## Cannot get SHM...";
    void *at = shmat(id, nullptr, 0);
    if (at == (void *)-1) return "## Cannot attach SHM...";
    slot->shm = at;
    return nullptr;
}

}   // namespace

int V_shmat(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, "<@shmat>", compile, ignore, text);
    if (go <= 0) return go;
    static char word[6][ARG_AREA];
    take_args(text, word, 6);
    const char *name = word[0], *status = word[5];
    long key = atol(word[1]), size = atol(word[2]), offset = atol(word[3]), length = atol(word[4]);

    release(name);
    V_SHM *slot = free_slot();
    if (!slot) {
        snprintf(V_ERRMSG, sizeof V_ERRMSG, "## Reached MAX SHM list value");
        set_status(status, false);
        return 0;
    }
    if (const char *why = attach(slot, key, size, offset, length)) {
        snprintf(V_ERRMSG, sizeof V_ERRMSG, "%s", why);
        set_status(status, false);
        return 0;
    }
    V_USER *u = V_put_value(name, "", 0, 0) == 0 ? V_get_user(name) : nullptr;
    if (!u) {
        release(name);
        if (slot->shm) {   // the variable was refused: give the slot back
            shmdt(slot->shm);
            slot->shm = nullptr;
        }
        snprintf(V_ERRMSG, sizeof V_ERRMSG, "## Cannot assign SHM Variable...");
        set_status(status, false);
        return 0;
    }
    // The stretch is the variable's storage: the store writes into it with
    // the length cut and reads it back terminated (see the store's fixed = 2).
    slot->user = u;
    u->fixed = 2;
    u->cookie = (short)length;
    u->avl.data = (char *)slot->shm + offset;
    u->var.value = (char *)V_heap_alloc(u->hp, (int)length + 1);
    u->var.next = nullptr;
    set_status(status, true);
    return 0;
}

int V_shmdt(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, "<@shmdt>", compile, ignore, text);
    if (go <= 0) return go;
    static char word[2][ARG_AREA];
    take_args(text, word, 2);
    release(word[0]);
    set_status(word[1], true);
    return 0;
}
