#include "ifs.h"
#include "tools/card.h"
#include "tools/commands.h"
#include "tools/size_text.h"
#include "tools/time_text.h"

namespace
{

std::string exact_size(unsigned long long bytes)
{
    return size_text(bytes) + " (" + std::to_string(bytes) + " bytes)";
}

/** @return end of the latest recording, empty when there is none */
std::string latest_time()
{
    struct tm latest = {};
    return Ifsi_get_latest_rec_time(&latest) == 0 ? time_text(utc_seconds(latest)) : "";
}

} // namespace

void show_info(const Context& context)
{
    Card card(context.card_path);
    bool mounted = card.try_mount();
    _ifs_system_info_ info = {};
    Ifsi_get_system_info(&info);
    unsigned long main_count = 0;
    unsigned long sub_count = 0;
    Ifsi_get_file_number(&main_count, &sub_count);
    std::string latest = mounted ? latest_time() : "";

    if (context.json) {
        nlohmann::json latest_or_null;
        if (!latest.empty())
            latest_or_null = latest;
        context.results.write(nlohmann::json{{"card", context.card_path},
                                             {"present", info.have_card == 1},
                                             {"formatted", info.formatted == 1},
                                             {"size_bytes", info.dev_size},
                                             {"total_bytes", info.fs_total_size},
                                             {"free_bytes", info.fs_free_size},
                                             {"main_recordings", main_count},
                                             {"sub_recordings", sub_count},
                                             {"latest", latest_or_null},
                                             {"folder", card.folder()}});
        return;
    }
    std::string text = "Card        " + context.card_path + ", " + exact_size(info.dev_size) + "\n";
    if (mounted)
        text += "Capacity    " + exact_size(info.fs_total_size) + "\nFree        " +
                exact_size(info.fs_free_size) + "\nRecordings  " + std::to_string(main_count) + " main, " +
                std::to_string(sub_count) + " sub\nLatest      " + (latest.empty() ? "none" : latest) +
                "\nFiles in    " + card.folder() + "\n";
    else
        text += "Formatted   no; 'format' prepares it\n";
    context.results.write(text);
}
