// The default settings, slot by slot.

#include "BrenikDB/settings.h"

#include "fwp/profile_setting.h"
#include "platform/folders.h"

namespace brenik {

namespace {

Value list(Array elements = {}) { return Value::array(std::move(elements)); }

std::string current_folder() {
    const std::string drive = platform::current_drive();
    const std::string folder = platform::current_directory();
    return drive + (drive == "\\" ? "" : ":\\") + (folder.empty() ? "" : folder + "\\");
}

}  // namespace

ArrayReference default_settings(Date today) {
    const Value nil;
    Array settings{
        0,                                                             // 1
        false,                                                         // 2 SharedUse
        false,                                                         // 3
        150,                                                           // 4
        1,                                                             // 5 ServerType
        list({"", "", "", false, true}),                               // 6
        today,                                                         // 7
        0,                                                             // 8
        list({nil, nil, nil}),                                         // 9
        list({-1, -1, -1}),                                            // 10
        list({"DayPhone", "EvePhone", "Phone3", "Phone4",              // 11
              "User1", "User2", "User3", "User4"}),                    //
        true,                                                          // 12
        list({std::string(17, ' '), true, true}),                      // 13
        list(Array(9)),                                                // 14
        list({0, 0, 0}),                                               // 15
        true,                                                          // 16
        1,                                                             // 17
        list({false, false, false}),                                   // 18
        list(),                                                        // 19
        false,                                                         // 20
        list(Array(6, false)),                                         // 21
        platform::windows_folder() + "\\LawWin.INI",                   // 22 WinIniFile
        "",                                                            // 23
        current_folder(),                                              // 24 DataPath
        nil,                                                           // 25
        -1,                                                            // 26
        0,                                                             // 27
        0,                                                             // 28
        list({nil, true, ""}),                                         // 29
        0,                                                             // 30
        false,                                                         // 31
        "",                                                            // 32
        false,                                                         // 33
        list({"Brenik Law", "Name", "Matter", "Case #", "Attorney"}),  // 34
        "",                                                            // 35
        "",                                                            // 36
        0,                                                             // 37
        false,                                                         // 38
        "",                                                            // 39
        true,                                                          // 40
        list({false, false}),                                          // 41
    };
    return std::make_shared<Array>(std::move(settings));
}

void store_setting(Session& session, Setting slot, Value value) {
    session.variables.PUBLICVARS->at(static_cast<std::size_t>(slot) - 1) = std::move(value);
}

std::string main_setting(Session& session, std::string_view operation, const std::string& key) {
    return profile_setting(session, operation, practice::kMainSection, key, "",
                           session.data_path() + practice::kSettingsFile);
}

}  // namespace brenik
