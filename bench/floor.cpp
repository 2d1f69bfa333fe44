// The floor: the file-system work of one library event, in plain C++ on POSIX
// calls, with nothing remembered between events. Per file: list its directory
// (names only), stat the current file for its size, open it for append, write,
// close. Of the library's naming rules it keeps what the benchmark trees reach:
// the highest index is the current file, and past 1 MiB the next index starts.
// Retention is left out: the trees stay below 100 and 500 files, and the
// writer benchmark compares the files written with the library's after every run.
#include "bench.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr off_t maxFileSize = 1048576;

struct LogDir
{
    const char* path;
    const char* prefix;
    bool dated; // print files: <prefix><index>_<date>.txt
};

const LogDir userDir = {"../../log/online", "user_log_file_", false};
const LogDir printDir = {"../../log/useronline", "user_print_file_", true};

std::string today()
{
    const std::time_t now = std::time(nullptr);
    std::tm local;
    localtime_r(&now, &local);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return text;
}

std::string fileName(const LogDir& dir, long index)
{
    return dir.prefix + std::to_string(index) + (dir.dated ? "_" + today() : "") + ".txt";
}

// The path of the file to append to in dir.
std::string currentFile(const LogDir& dir)
{
    const size_t prefixSize = std::strlen(dir.prefix);
    long highest = -1;
    std::string name;
    if (DIR* listing = opendir(dir.path)) {
        while (const dirent* entry = readdir(listing)) {
            const bool file = entry->d_type == DT_REG || entry->d_type == DT_UNKNOWN;
            if (!file || std::strncmp(entry->d_name, dir.prefix, prefixSize) != 0)
                continue;
            const long index = std::atol(entry->d_name + prefixSize);
            if (index > highest) {
                highest = index;
                name = entry->d_name;
            }
        }
        closedir(listing);
    }
    const std::string base = std::string(dir.path) + "/";
    if (highest < 0)
        return base + fileName(dir, 0);
    struct stat info;
    if (stat((base + name).c_str(), &info) == 0 && info.st_size > maxFileSize)
        name = fileName(dir, highest + 1);
    return base + name;
}

// Opens and closes the file even for no text: the library does.
void append(const LogDir& dir, const std::string& text, bool writePerLine)
{
    const int fd = open(currentFile(dir).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return;
    for (size_t at = 0; at < text.size();) {
        const size_t end = writePerLine ? text.find('\n', at) + 1 : text.size();
        if (write(fd, text.data() + at, end - at) != ssize_t(end - at))
            break;
        at = end;
    }
    close(fd);
}

} // namespace

const char* levelTag(int level, bool batch)
{
    static const char* const tags[] = {"info", "warn", "erro", "printinfo"};
    if (level < 2 || level > 5 || (level == 5 && !batch))
        return "log";
    return tags[level - 2];
}

bool isPrintEntry(int level, bool batch)
{
    return level == (batch ? 5 : 6);
}

void floorEvent(const Entry* entries, size_t count, bool batch, bool writePerLine)
{
    std::string userText;
    std::string printText;
    for (const Entry* e = entries; e != entries + count; ++e) {
        const std::string line =
            "-- " + e->time + " -- <MAIN> <" + levelTag(e->level, batch) + "> " + e->message + "\n";
        userText += line;
        if (isPrintEntry(e->level, batch))
            printText += line;
    }
    append(userDir, userText, writePerLine);
    append(printDir, printText, writePerLine);
}
