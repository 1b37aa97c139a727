#include "efi/EFIServiceIPCLEDCommand.h"

#include <initializer_list>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "app/Log.h"

namespace {

const std::unordered_map<int, std::wstring>& ledTable()
{
    // The service once took BLINK_2_5HZ under the id of BLINK; the map keeps the first of the two, so
    // id 5 still sends "BLINK", which is what every installed service understands.
    static const std::unordered_map<int, std::wstring> table = [] {
        std::unordered_map<int, std::wstring> modes;
        for (auto& entry : std::initializer_list<std::pair<int, const wchar_t*>>{
                 {0, L"OFF"},
                 {3, L"ON"},
                 {5, L"BLINK"},
                 {5, L"BLINK_2_5HZ"},
                 {10, L"BLINK_1_25HZ"},
                 {15, L"BLINK_0_833HZ"},
                 {9, L"BLINK_FAST_1_66HZ"},
                 {13, L"BLINK_FAST_1_25HZ"},
             })
            modes.insert({entry.first, entry.second});
        return modes;
    }();
    return table;
}

}  // namespace

void EFIServiceIPCLEDCommand::NotFound(const std::wstring (&keywords)[3], const char* reason)
{
    WriteLog("[%s] [ERROR]: LED command RGB -> LED:%S:%S:%S not found (%s)!",
             "EFIServiceIPCLEDCommand::EFIServiceIPCLEDCommand", keywords[0].c_str(), keywords[1].c_str(),
             keywords[2].c_str(), reason);
    FreeRequest();
}

EFIServiceIPCLEDCommand::EFIServiceIPCLEDCommand(int red, int green, int blue)
{
    std::wstring keywords[3];
    try {
        keywords[0] = ledTable().at(red);
        keywords[1] = ledTable().at(green);
        keywords[2] = ledTable().at(blue);
        SetRequest(halvern::efi::formatRequest(L"LED:%S:%S:%S", keywords[0].c_str(), keywords[1].c_str(),
                                               keywords[2].c_str()));
    } catch (const std::exception& error) {
        NotFound(keywords, error.what());
    } catch (...) {
        NotFound(keywords, "Unknown exception");
    }
}
