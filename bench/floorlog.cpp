#include "floorlog.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace floorlog {

namespace {

constexpr long long maxLogFileSize = 1048576;
constexpr int maxUserFiles = 100;
constexpr int maxPrintFiles = 500;
const char* const userDir = "../../log/online";
const char* const printDir = "../../log/useronline";
const std::string userPrefix = "user_log_file_";
const std::string userSuffix = ".txt";
const std::string printPrefix = "user_print_file";

bool isHidden(const char* name)
{
    return name[0] == '.';
}

// Regular files count; links count when their target is a file. Only links and
// file systems that report no type need a stat.
bool isFile(int dirFd, const dirent* entry, bool* isLink)
{
    *isLink = entry->d_type == DT_LNK;
    if (entry->d_type == DT_REG)
        return true;
    if (entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN)
        return false;
    struct stat st;
    if (fstatat(dirFd, entry->d_name, &st, 0) != 0)
        return false;
    if (entry->d_type == DT_UNKNOWN) {
        struct stat lst;
        *isLink =
            fstatat(dirFd, entry->d_name, &lst, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(lst.st_mode);
    }
    return S_ISREG(st.st_mode);
}

// Base-10 integer of [begin, end), the whole text or nothing.
bool parseInt(const char* begin, const char* end, int* value)
{
    if (begin == end)
        return false;
    const std::string text(begin, end);
    char* stop = nullptr;
    errno = 0;
    const long parsed = std::strtol(text.c_str(), &stop, 10);
    if (stop != text.c_str() + text.size() || errno != 0 || parsed < INT_MIN || parsed > INT_MAX)
        return false;
    *value = int(parsed);
    return true;
}

// The text after the last "_" of the part before the first "."; 0 otherwise.
int indexOfLogFile(const char* name)
{
    const char* dot = std::strchr(name, '.');
    const char* end = dot != nullptr ? dot : name + std::strlen(name);
    const char* start = name;
    for (const char* p = name; p != end; ++p) {
        if (*p == '_')
            start = p + 1;
    }
    int index = 0;
    return parseInt(start, end, &index) ? index : 0;
}

bool endsWithTxt(const std::string& name)
{
    return name.size() >= 4 && strcasecmp(name.c_str() + name.size() - 4, ".txt") == 0;
}

// prefix + "_*_*.txt", case-insensitive; the index is between the prefix's "_"
// and the last "_".
bool datedIndex(const std::string& name, int* index)
{
    const size_t start = printPrefix.size() + 1;
    if (name.size() < start + 5 || strncasecmp(name.c_str(), printPrefix.c_str(), start - 1) != 0 ||
        name[start - 1] != '_' || !endsWithTxt(name))
        return false;
    const size_t last = name.rfind('_');
    if (last == std::string::npos || last < start || last > name.size() - 5)
        return false;
    return parseInt(name.c_str() + start, name.c_str() + last, index);
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string today()
{
    const std::time_t now = std::time(nullptr);
    std::tm local;
    localtime_r(&now, &local);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return text;
}

bool makePath(const std::string& path)
{
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST)
            return false;
        if (slash == std::string::npos)
            return true;
    }
}

// Opens a log directory for listing, creating it when missing.
DIR* openLogDir(const char* path, bool* created)
{
    *created = false;
    int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT && makePath(path)) {
        *created = true;
        fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    if (fd < 0)
        return nullptr;
    DIR* dir = fdopendir(fd);
    if (dir == nullptr)
        close(fd);
    return dir;
}

long long sizeOf(int dirFd, const std::string& name, bool* exists)
{
    struct stat st;
    *exists = fstatat(dirFd, name.c_str(), &st, 0) == 0;
    return *exists ? (long long)st.st_size : 0;
}

struct Indexed
{
    int index;
    std::string name;
};

// Deletes the lowest indexes while maxUserFiles or more files are there; equal
// indexes go oldest-modified first. Runs only when the directory is full.
void trimUserDir(int dirFd, std::vector<Indexed>& files)
{
    const size_t deleteCount = files.size() - maxUserFiles + 1;
    auto mtime = [dirFd](const std::string& name) {
        struct stat st;
        fstatat(dirFd, name.c_str(), &st, 0);
        return st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
    };
    std::stable_sort(files.begin(), files.end(),
                     [](const Indexed& a, const Indexed& b) { return a.index < b.index; });
    const int boundary = files[deleteCount - 1].index;
    size_t tied = 0;
    while (tied < files.size() && files[tied].index <= boundary)
        ++tied;
    if (tied > deleteCount) {
        std::vector<long long> times;
        for (size_t i = 0; i < tied; ++i)
            times.push_back(mtime(files[i].name));
        std::vector<size_t> order(tied);
        for (size_t i = 0; i < tied; ++i)
            order[i] = i;
        std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
            return files[a].index != files[b].index ? files[a].index < files[b].index
                                                    : times[a] < times[b];
        });
        std::vector<Indexed> head;
        for (size_t i : order)
            head.push_back(files[i]);
        std::copy(head.begin(), head.end(), files.begin());
    }
    size_t deleted = 0;
    while (deleted < deleteCount && unlinkat(dirFd, files[deleted].name.c_str(), 0) == 0)
        ++deleted;
    files.erase(files.begin(), files.begin() + long(deleted));
}

// Chooses the user-log file; an open directory is handed back in *dir.
bool resolveUserLog(DIR** dir, std::string* name)
{
    bool created = false;
    *dir = openLogDir(userDir, &created);
    if (*dir == nullptr)
        return false;
    const int fd = dirfd(*dir);
    if (created) {
        *name = userPrefix + "0" + userSuffix;
        return true;
    }
    int count = 0;
    int highest = INT_MIN;
    while (const dirent* entry = readdir(*dir)) {
        bool link = false;
        if (isHidden(entry->d_name) || !isFile(fd, entry, &link))
            continue;
        highest = std::max(highest, indexOfLogFile(entry->d_name));
        ++count;
    }
    if (count == 0) {
        *name = userPrefix + "0" + userSuffix;
        return true;
    }
    if (count >= maxUserFiles) {
        // Names are needed only when something has to go: list again for them.
        std::vector<Indexed> files;
        rewinddir(*dir);
        while (const dirent* entry = readdir(*dir)) {
            bool link = false;
            if (!isHidden(entry->d_name) && isFile(fd, entry, &link))
                files.push_back({indexOfLogFile(entry->d_name), entry->d_name});
        }
        trimUserDir(fd, files);
        highest = INT_MIN;
        for (const Indexed& file : files)
            highest = std::max(highest, file.index);
    }
    long long index = highest;
    for (;;) {
        *name = userPrefix + std::to_string(index) + userSuffix;
        bool exists = false;
        if (sizeOf(fd, *name, &exists) <= maxLogFileSize || !exists)
            return true;
        ++index;
    }
}

struct Listed
{
    std::string name;
    bool isLink;
};

// The least recently read ".txt" file goes when more than maxPrintFiles are there;
// equal times go to the first in name order. Returns the deleted name.
std::string trimPrintDir(int dirFd, const std::vector<Listed>& files)
{
    std::string oldest;
    long long oldestRead = 0;
    for (const Listed& file : files) {
        if (!endsWithTxt(file.name))
            continue;
        struct stat st;
        if (fstatat(dirFd, file.name.c_str(), &st, 0) != 0)
            st.st_atim = {};
        const long long read = st.st_atim.tv_sec * 1000LL + st.st_atim.tv_nsec / 1000000;
        if (oldest.empty() || read < oldestRead || (read == oldestRead && file.name < oldest)) {
            oldest = file.name;
            oldestRead = read;
        }
    }
    return unlinkat(dirFd, oldest.c_str(), 0) == 0 ? oldest : std::string();
}

bool resolvePrintFile(DIR** dir, std::string* name)
{
    bool created = false;
    *dir = openLogDir(printDir, &created);
    if (*dir == nullptr)
        return false;
    const int fd = dirfd(*dir);
    std::vector<Listed> files;
    int txtFiles = 0;
    while (const dirent* entry = readdir(*dir)) {
        bool link = false;
        if (isHidden(entry->d_name) || !isFile(fd, entry, &link))
            continue;
        files.push_back({entry->d_name, link});
        txtFiles += endsWithTxt(files.back().name) ? 1 : 0;
    }
    const std::string deleted = txtFiles > maxPrintFiles ? trimPrintDir(fd, files) : std::string();
    int highest = -1;
    std::string latest;
    std::string latestLower;
    for (const Listed& file : files) {
        int index = 0;
        if (file.isLink || file.name == deleted || !datedIndex(file.name, &index) ||
            index < highest)
            continue;
        const std::string low = lower(file.name);
        if (index > highest || low < latestLower) {
            highest = index;
            latest = file.name;
            latestLower = low;
        }
    }
    if (highest < 0) {
        *name = printPrefix + "_0_" + today() + ".txt";
        return true;
    }
    *name = latest;
    bool exists = false;
    if (sizeOf(fd, latest, &exists) > maxLogFileSize)
        *name = printPrefix + "_" + std::to_string(highest + 1LL) + "_" + today() + ".txt";
    return true;
}

const char* tag(int level, bool batch)
{
    switch (level) {
    case 2:
        return "info";
    case 3:
        return "warn";
    case 4:
        return "erro";
    case 5:
        return batch ? "printinfo" : "log";
    default:
        return "log";
    }
}

void appendLine(std::string& out, const Entry& entry, bool batch)
{
    out += "-- ";
    out += entry.time;
    out += " -- <";
    out += entry.block;
    out += "> <";
    out += tag(entry.level, batch);
    out += "> ";
    out += entry.message;
    out += '\n';
}

// Appends text with one write, or one write per line.
bool appendTo(DIR* dir, const std::string& name, const std::string& text, bool writePerLine)
{
    const int fd =
        openat(dirfd(dir), name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    bool ok = true;
    for (size_t at = 0; ok && at < text.size();) {
        const size_t end = writePerLine ? text.find('\n', at) + 1 : text.size();
        ok = write(fd, text.data() + at, end - at) == ssize_t(end - at);
        at = end;
    }
    close(fd);
    return ok;
}

bool writeEvent(const Entry* entries, size_t count, bool batch, bool writePerLine)
{
    DIR* userDirHandle = nullptr;
    DIR* printDirHandle = nullptr;
    std::string userName;
    std::string printName;
    bool ok =
        resolveUserLog(&userDirHandle, &userName) && resolvePrintFile(&printDirHandle, &printName);
    if (ok) {
        std::string userText;
        std::string printText;
        for (size_t i = 0; i < count; ++i) {
            const size_t before = userText.size();
            appendLine(userText, entries[i], batch);
            if (entries[i].level == (batch ? 5 : 6))
                printText.append(userText, before, std::string::npos);
        }
        ok = appendTo(userDirHandle, userName, userText, writePerLine) &&
             appendTo(printDirHandle, printName, printText, writePerLine);
    }
    if (userDirHandle != nullptr)
        closedir(userDirHandle);
    if (printDirHandle != nullptr)
        closedir(printDirHandle);
    return ok;
}

} // namespace

bool writeSingle(const Entry& entry)
{
    if (entry.message.empty())
        return true;
    return writeEvent(&entry, 1, false, false);
}

bool writeBatch(const std::vector<Entry>& entries, bool writePerLine)
{
    if (entries.empty())
        return true;
    return writeEvent(entries.data(), entries.size(), true, writePerLine);
}

} // namespace floorlog
