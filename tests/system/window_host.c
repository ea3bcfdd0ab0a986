/* A Windows host with a window.
 *
 *     window_host edit LIBRARY PRACTICE CONTACT
 *     window_host link LIBRARY PRACTICE CONTACT
 *         edits the contact, or adds a matter for it, with the window on the screen, which another
 *         thread keeps asking to be painted; one JSON object tells what happened during the End
 *     window_host press TITLE
 *         waits for a box, prints its text and how many of the host's windows take input, and
 *         presses its button when a line is read
 *     window_host hold FILE
 *         keeps a file open without sharing it, until its input ends */

#include <windows.h>

#include <stdio.h>
#include <string.h>

#include "brenikdb.h"

enum { kTimer = 1, kTimerMilliseconds = 20, kInvalidationMilliseconds = 50 };

static int paints, timers, keys;

static LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM w, LPARAM l) {
    if (message == WM_TIMER) ++timers;
    if (message == WM_KEYDOWN) ++keys;
    if (message != WM_PAINT) return DefWindowProcA(window, message, w, l);
    PAINTSTRUCT paint;
    char text[40];
    HDC context = BeginPaint(window, &paint);
    RECT area;
    GetClientRect(window, &area);
    FillRect(context, &area, (HBRUSH)GetStockObject(paints % 2 ? WHITE_BRUSH : LTGRAY_BRUSH));
    TextOutA(context, 12, 12, text, sprintf(text, "Host, painted %d times", ++paints));
    EndPaint(window, &paint);
    return 0;
}

static DWORD WINAPI invalidate(LPVOID window) {
    while (IsWindow((HWND)window)) {
        InvalidateRect((HWND)window, NULL, TRUE);
        Sleep(kInvalidationMilliseconds);
    }
    return 0;
}

static HWND show_window(void) {
    WNDCLASSA description;
    memset(&description, 0, sizeof description);
    description.lpfnWndProc = window_procedure;
    description.lpszClassName = "Host";
    description.hCursor = LoadCursorA(NULL, (LPCSTR)IDC_ARROW);
    RegisterClassA(&description);
    CreateWindowA("Host", "Second", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 380, 200, 90, NULL, NULL,
                  NULL, NULL);
    HWND window = CreateWindowA("Host", "Host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 40, 560, 320,
                                NULL, NULL, NULL, NULL);
    UpdateWindow(window);
    SetTimer(window, kTimer, kTimerMilliseconds, NULL);
    CloseHandle(CreateThread(NULL, 0, invalidate, window, 0, NULL));
    return window;
}

static HMODULE library;

#define CALL(name) ((__typeof__(&name))(void (*)(void))GetProcAddress(library, #name))

static void work(int edit, char* contact) {
    const int table = edit ? 1 : 3;
    int p = 0;
    HWND window = show_window();
    unsigned rc =
        edit ? CALL(BrenikEditStart)(table, contact, &p) : CALL(BrenikAddStart)(table, &p);
    if (!rc) rc = CALL(BrenikSetField)(table, 0, edit ? "LAST" : "MATTER", "Window");
    PostMessageA(window, WM_KEYDOWN, VK_SPACE, 0);
    paints = timers = keys = 0;
    const ULONGLONG begin = GetTickCount64();
    if (!rc) rc = edit ? CALL(BrenikEditEnd)(table, 0) : CALL(BrenikAddEnd)(table, contact);
    const unsigned long spent = (unsigned long)(GetTickCount64() - begin);
    const int painted = paints, handled = timers + keys;
    MSG message;
    while (PeekMessageA(&message, NULL, WM_KEYFIRST, WM_KEYLAST, PM_REMOVE))
        DispatchMessageA(&message);
    printf("{\"rc\": %u, \"ms\": %lu, \"paints\": %d, \"handled\": %d, \"keys afterwards\": %d}\n",
           rc, spent, painted, handled, keys);
}

static void press(const char* title) {
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
    PostMessageA(box, WM_COMMAND, IDOK, 0);
}

static void hold(const char* path) {
    HANDLE file = CreateFileA(path, GENERIC_READ, 0, NULL, OPEN_EXISTING, 0, NULL);
    puts(file == INVALID_HANDLE_VALUE ? "not held" : "held");
    fflush(stdout);
    getchar();
}

int main(int argc, char** argv) {
    if (argc == 3 && !strcmp(argv[1], "hold")) return hold(argv[2]), 0;
    if (argc == 3 && !strcmp(argv[1], "press")) return press(argv[2]), 0;
    if (argc != 5) return 2;
    library = LoadLibraryA(argv[2]);
    if (!library) return 3;
    CALL(BrenikInitialize)(argv[3], 0, 0);
    work(!strcmp(argv[1], "edit"), argv[4]);
    return 0;
}
