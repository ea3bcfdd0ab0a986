// Windows' message boxes, and the self-closing notice.
//
// During a notice the host's thread is here and not in its own message loop. So the wait paints the
// host's windows and answers messages sent by other threads, and does nothing else. Keys, clicks,
// timers and posted messages stay queued until the call returns, because the host's handlers for
// them might call the library again in the middle of a transaction.

#include "platform/ui.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <vector>

#include "platform/notice_text.h"
#include "platform/windows/system_text.h"

namespace brenik::platform {

namespace {

// Paints the windows of this thread that need it, and dispatches messages sent by other threads.
void paint_windows(ULONGLONG deadline) {
    MSG message;
    while (GetTickCount64() < deadline &&
           PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE | PM_QS_PAINT | PM_QS_SENDMESSAGE)) {
        if (message.message == WM_QUIT) {
            PostQuitMessage(static_cast<int>(message.wParam));  // the host's, for later
            return;
        }
        DispatchMessageW(&message);
    }
}

void wait_ms(int duration_ms) {
    const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(std::max(duration_ms, 0));
    for (ULONGLONG now = GetTickCount64(); now < deadline; now = GetTickCount64()) {
        const auto left = static_cast<DWORD>(deadline - now);
        const DWORD result =
            MsgWaitForMultipleObjectsEx(0, nullptr, left, QS_PAINT | QS_SENDMESSAGE, 0);
        if (result == WAIT_FAILED) Sleep(left);  // no message queue to wait for
        if (result == WAIT_OBJECT_0) paint_windows(deadline);
    }
}

class SilentInterface : public UserInterface {
  public:
    void message_box(const std::string&, const std::string&, Icon) override {}
    void notice(const std::string&, const std::string&, int duration_ms) override {
        wait_ms(duration_ms);
    }
    void beep() override {}
    void set_cursor(Cursor) override {}
};

// Uses the system's handle, not the C library's stream: the handle belongs to the host, and
// windowed hosts have none.
void write_to_standard_error(const std::string& text) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()),
              &written, nullptr);
}

class StandardErrorInterface : public UserInterface {
  public:
    void message_box(const std::string& text, const std::string& title, Icon) override {
        write_to_standard_error(readable(text, title));
    }
    void notice(const std::string& text, const std::string& title, int duration_ms) override {
        write_to_standard_error(readable(text, title));
        wait_ms(duration_ms);
    }
    void beep() override {
        if (GetFileType(GetStdHandle(STD_ERROR_HANDLE)) == FILE_TYPE_CHAR) {
            write_to_standard_error("\a");
        }
    }
    void set_cursor(Cursor) override {}
};

// A dialog frame with a text, shown in front without taking the focus. It uses window classes of
// the system, so nothing stays registered when the library is unloaded.
class NoticeWindow {
  public:
    NoticeWindow(const std::wstring& text, const std::wstring& title) {
        const HWND host = GetActiveWindow();
        const SIZE text_size = measure(text);
        RECT frame = {0, 0, text_size.cx + 2 * kMargin, text_size.cy + 2 * kMargin};
        AdjustWindowRectEx(&frame, kStyle, FALSE, kExtendedStyle);
        const SIZE size = {frame.right - frame.left, frame.bottom - frame.top};
        const POINT place = centred(size, host);
        window_ = CreateWindowExW(kExtendedStyle, kDialogClass, title.c_str(), kStyle, place.x,
                                  place.y, size.cx, size.cy, host, nullptr, nullptr, nullptr);
        if (!window_) return;
        const HWND label = CreateWindowExW(
            0, L"STATIC", text.c_str(), WS_CHILD | WS_VISIBLE | SS_NOPREFIX, kMargin, kMargin,
            text_size.cx, text_size.cy, window_, nullptr, nullptr, nullptr);
        if (label) SendMessageW(label, WM_SETFONT, reinterpret_cast<WPARAM>(font()), FALSE);
        ShowWindow(window_, SW_SHOWNOACTIVATE);
        RedrawWindow(window_, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
    }
    ~NoticeWindow() {
        if (window_) DestroyWindow(window_);
    }
    NoticeWindow(const NoticeWindow&) = delete;
    NoticeWindow& operator=(const NoticeWindow&) = delete;

    bool is_open() const { return window_ != nullptr; }

  private:
    static constexpr const wchar_t* kDialogClass = L"#32770";
    static constexpr DWORD kStyle = WS_POPUP | WS_CAPTION;
    static constexpr DWORD kExtendedStyle = WS_EX_DLGMODALFRAME | WS_EX_NOACTIVATE | WS_EX_TOPMOST;
    static constexpr LONG kMargin = 16;
    static constexpr LONG kWidestText = 480;

    static HGDIOBJ font() { return GetStockObject(DEFAULT_GUI_FONT); }

    static SIZE measure(const std::wstring& text) {
        RECT area = {0, 0, kWidestText, 0};
        const HDC screen = GetDC(nullptr);
        const HGDIOBJ before = SelectObject(screen, font());
        DrawTextW(screen, text.c_str(), static_cast<int>(text.size()), &area,
                  DT_CALCRECT | DT_NOPREFIX | DT_WORDBREAK);
        SelectObject(screen, before);
        ReleaseDC(nullptr, screen);
        return {area.right, area.bottom};
    }

    // On the monitor that shows the host.
    static POINT centred(SIZE size, HWND host) {
        MONITORINFO screen = {};
        screen.cbSize = sizeof screen;
        GetMonitorInfoW(MonitorFromWindow(host, MONITOR_DEFAULTTOPRIMARY), &screen);
        const RECT& room = screen.rcWork;
        return {(room.left + room.right - size.cx) / 2, (room.top + room.bottom - size.cy) / 2};
    }

    HWND window_ = nullptr;
};

// While one exists, no other window of this thread takes input: the host's handlers might call the
// library again in the middle of a transaction. A modal box disables only its owner.
class OtherWindowsDisabled {
  public:
    explicit OtherWindowsDisabled(HWND owner) : owner_(owner) {
        EnumThreadWindows(GetCurrentThreadId(), disable, reinterpret_cast<LPARAM>(this));
    }
    ~OtherWindowsDisabled() {
        for (const HWND window : disabled_) EnableWindow(window, TRUE);
    }
    OtherWindowsDisabled(const OtherWindowsDisabled&) = delete;
    OtherWindowsDisabled& operator=(const OtherWindowsDisabled&) = delete;

  private:
    static BOOL CALLBACK disable(HWND window, LPARAM self) {
        auto& others = *reinterpret_cast<OtherWindowsDisabled*>(self);
        const bool takes_input = IsWindowVisible(window) && IsWindowEnabled(window);
        if (!takes_input || window == others.owner_) return TRUE;
        others.disabled_.push_back(window);
        EnableWindow(window, FALSE);
        return TRUE;
    }

    HWND owner_;
    std::vector<HWND> disabled_;
};

// Shows a text that is not valid in the host's code page byte by byte.
std::wstring shown_text(const std::string& text) {
    return wide_text(text).value_or(std::wstring(text.begin(), text.end()));
}

// Falls back to standard error if the system creates no window.
class WindowInterface : public UserInterface {
  public:
    // Modal to all windows of this thread. The active window is the owner, so that the box stays in
    // front of it.
    void message_box(const std::string& text, const std::string& title, Icon icon) override {
        const UINT look = icon == Icon::kStop ? MB_ICONSTOP : MB_ICONINFORMATION;
        const std::wstring caption = shown_text(title);
        const HWND owner = GetActiveWindow();
        const OtherWindowsDisabled others(owner);
        if (MessageBoxW(owner, shown_text(text).c_str(), title.empty() ? nullptr : caption.c_str(),
                        MB_OK | MB_TASKMODAL | MB_SETFOREGROUND | look) <= 0) {
            write_to_standard_error(readable(text, title));
        }
    }
    void notice(const std::string& text, const std::string& title, int duration_ms) override {
        const NoticeWindow window(shown_text(text), shown_text(title));
        if (!window.is_open()) write_to_standard_error(readable(text, title));
        wait_ms(duration_ms);
    }
    void beep() override { MessageBeep(MB_ICONSTOP); }
    void set_cursor(Cursor cursor) override {
        SetCursor(LoadCursorW(nullptr, cursor == Cursor::kWait ? IDC_WAIT : IDC_ARROW));
    }
};

// A service has an invisible desktop; a box there would wait for ever.
bool is_desktop_visible() {
    USEROBJECTFLAGS flags = {};
    return GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags,
                                     nullptr) &&
           (flags.dwFlags & WSF_VISIBLE) != 0;
}

}  // namespace

std::unique_ptr<UserInterface> make_user_interface() {
    const std::string wanted = environment_variable(L"BRENIK_UI");
    if (wanted == "none") return std::make_unique<SilentInterface>();
    if (wanted == "stderr" || !is_desktop_visible()) {
        return std::make_unique<StandardErrorInterface>();
    }
    return std::make_unique<WindowInterface>();
}

}  // namespace brenik::platform
