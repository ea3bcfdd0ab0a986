/* A client of the import library in the form of Microsoft's linker, with no run-time of its own:
 * every export by name, against a library without a session. The exit code is the first call that
 * answers otherwise. */

#include <windows.h>

#include "brenikdb.h"

void start(void) {
    char text[64] = "       ";
    int p = 0;
    const BrenikCode answers[] = {
        BrenikInitialize("?", 0, 0) == 1, BrenikAddedRecord(1, 1) == 5,
        BrenikDeletedRecord(1, 1) == 5,   BrenikAddStart(1, &p) == 5 && p == 1,
        BrenikAddEnd(1, text) != 0,       BrenikEditStart(1, text, &p) == 5,
        BrenikEditBegin(1, 1, &p) == 5,   BrenikSetField(1, 1, "LAST", "x") != 0,
        BrenikEditEnd(1, 1) != 0,         BrenikGetMyFirm(text) == 0,
        BrenikGetU_ID(1, "x", text) == 5, BrenikShutDown() == 0,
    };
    UINT wrong = 0;
    for (UINT i = 0; i < sizeof answers / sizeof *answers; ++i) {
        if (!answers[i] && !wrong) wrong = i + 1;
    }
    ExitProcess(wrong);
}
