/* A Windows host with two windows, for what the person at it sees while the library waits.
 *
 *     window_host work LIBRARY PRACTICE CONTACT
 *         edits the contact and adds a matter for it, while another thread keeps asking for the
 *         window to be painted; one JSON object for each tells what happened during the End
 *     window_host press TITLE
 *         waits for a box, prints its text and how many of the host's windows take input, and
 *         presses its button when a line is read */

#include <windows.h>

#include <stdio.h>
#include <string.h>

#include "brenikdb.h"

enum { kInvalidationMilliseconds = 50 };

static int paints, keys;

static LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM w, LPARAM l) {
    paints += message == WM_PAINT;
    keys += message == WM_KEYDOWN;
    return DefWindowProcA(window, message, w, l);
}

static DWORD WINAPI invalidate(LPVOID window) {
    while (IsWindow((HWND)window)) {
        InvalidateRect((HWND)window, NULL, TRUE);
        Sleep(kInvalidationMilliseconds);
    }
    return 0;
}

static HWND show_window(const char* title, int left) {
    return CreateWindowA("Host", title, WS_OVERLAPPEDWINDOW | WS_VISIBLE, left, 40, 300, 320, NULL,
                         NULL, NULL, NULL);
}

static HMODULE library;

#define CALL(name) ((__typeof__(&name))(void (*)(void))GetProcAddress(library, #name))

static void work(HWND window, int edit, char* contact) {
    const int table = edit ? 1 : 3;
    int p = 0;
    unsigned rc =
        edit ? CALL(BrenikEditStart)(table, contact, &p) : CALL(BrenikAddStart)(table, &p);
    if (!rc) rc = CALL(BrenikSetField)(table, 0, edit ? "LAST" : "MATTER", "Window");
    PostMessageA(window, WM_KEYDOWN, VK_SPACE, 0);
    paints = keys = 0;
    const ULONGLONG begin = GetTickCount64();
    if (!rc) rc = edit ? CALL(BrenikEditEnd)(table, 0) : CALL(BrenikAddEnd)(table, contact);
    const unsigned long spent = (unsigned long)(GetTickCount64() - begin);
    const int painted = paints, handled = keys;
    MSG message;
    while (PeekMessageA(&message, NULL, WM_KEYFIRST, WM_KEYLAST, PM_REMOVE))
        DispatchMessageA(&message);
    printf("{\"rc\": %u, \"ms\": %lu, \"paints\": %d, \"handled\": %d, \"keys afterwards\": %d}\n",
           rc, spent, painted, handled, keys);
    fflush(stdout);
}

static int press(const char* title) {
    HWND box = NULL;
    for (int tries = 0; tries < 1200 && !box; ++tries, Sleep(100))
        box = FindWindowA("#32770", title);
    char text[400] = "no box";
    HWND part = NULL;
    while ((part = FindWindowExA(box, part, "Static", NULL)) != NULL && box)
        GetWindowTextA(part, text, sizeof text);
    int enabled = 0;
    for (HWND window = NULL; (window = FindWindowExA(NULL, window, "Host", NULL)) != NULL;)
        enabled += IsWindowEnabled(window) != 0;
    printf("%s\n%d\n", text, enabled);
    fflush(stdout);
    getchar();
    return !PostMessageA(box, WM_COMMAND, IDOK, 0);
}

int main(int argc, char** argv) {
    if (argc == 3) return press(argv[2]);
    if (argc != 5 || !(library = LoadLibraryA(argv[2]))) return 2;
    const WNDCLASSA description = {.lpfnWndProc = window_procedure,
                                   .lpszClassName = "Host",
                                   .hbrBackground = (HBRUSH)GetStockObject(WHITE_BRUSH)};
    RegisterClassA(&description);
    show_window("Second", 340);
    HWND window = show_window("Host", 20);
    CloseHandle(CreateThread(NULL, 0, invalidate, window, 0, NULL));
    CALL(BrenikInitialize)(argv[3], 0, 0);
    work(window, 1, argv[4]);
    work(window, 0, argv[4]);
    return 0;
}
