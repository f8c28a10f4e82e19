#include <algorithm>

#include "tools/card.h"
#include "tools/commands.h"
#include "tools/recordings.h"
#include "tools/terminal.h"
#include "tools/time_text.h"

namespace
{

/** A range that ends at a time holds what starts in its second; one that ends with a day does not. */
int64_t last_second(const std::string& end)
{
    return parse_end_time(end) / 1000 - (is_date(end) ? 1 : 0);
}

} // namespace

void list_recordings(const Context& context, const ListOptions& options)
{
    int64_t from_s = options.from.empty() ? min_time_s : parse_time(options.from) / 1000;
    int64_t to_s = options.to.empty() ? max_time_s : last_second(options.to);
    if (to_s < from_s)
        throw Failure(ExitCode::usage, "--to lies before --from; swap them");

    std::vector<_ifs_stream_type_> streams = {IFS_STREAM_MAIN, IFS_STREAM_SUB};
    if (!options.stream.empty())
        streams = {parse_stream(options.stream)};

    Card card(context.card_path);
    card.mount();
    std::vector<_ifs_rec_file_> recordings;
    for (_ifs_stream_type_ stream : streams) {
        std::vector<_ifs_rec_file_> found = find_recordings(stream, from_s, to_s);
        recordings.insert(recordings.end(), found.begin(), found.end());
    }
    std::stable_sort(
        recordings.begin(), recordings.end(),
        [](const _ifs_rec_file_& a, const _ifs_rec_file_& b) { return start_seconds(a) < start_seconds(b); });
    if (context.json)
        context.results.write(recordings_json(recordings));
    else
        context.results.write(recordings_table(recordings, terminal_columns(context.results.fd())));
}
