#include "system/journal.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <vector>

#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

static constexpr const char* kFolder = "/run/systemd/journal";
static constexpr const char* kTextFile = "/opt/board/state/journal.txt";
static constexpr size_t kDatagramLimit = 16 << 20;  // bytes; also of a message passed as a file

struct KeptEntry {
    JournalEntry entry;
    std::string line;  // as journalctl prints it
};

static std::deque<KeptEntry> entries;
static int journalSocket = -1;
static FILE* textFile;
static size_t linesInFile;

// Takes one field off `rest`. False when the text ends inside it.
static bool TakeField(std::string_view& rest, std::string_view& key, std::string_view& value) {
    const size_t end = rest.find('\n');
    if (end == rest.npos) return false;
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    const size_t equals = line.find('=');
    key = line.substr(0, equals);
    if (equals != line.npos) {
        value = line.substr(equals + 1);
        return true;
    }
    uint64_t size = 0;
    if (rest.size() < sizeof size) return false;
    std::memcpy(&size, rest.data(), sizeof size);
    size = le64toh(size);
    rest.remove_prefix(sizeof size);
    if (size >= rest.size() || rest[size] != '\n') return false;
    value = rest.substr(0, size);
    rest.remove_prefix(size + 1);
    return true;
}

std::optional<JournalEntry> ParseJournalDatagram(std::string_view datagram) {
    JournalEntry entry;
    bool hasMessage = false;
    while (!datagram.empty()) {
        std::string_view key, value;
        if (!TakeField(datagram, key, value)) return std::nullopt;
        if (key == "MESSAGE") {
            entry.message = value.substr(0, value.find_last_not_of('\n') + 1);
            hasMessage = true;
        } else if (key == "PRIORITY" && value.size() == 1 && value[0] >= '0' && value[0] <= '7') {
            entry.priority = value[0];
        } else if (key == "SYSLOG_IDENTIFIER") {
            entry.identifier = value;
        }
    }
    return hasMessage ? std::optional(entry) : std::nullopt;
}

static std::string JournalctlLine(const JournalEntry& entry) {
    const time_t now = time(nullptr);
    char stamp[32] = "";
    struct tm local {};
    strftime(stamp, sizeof stamp, "%b %d %H:%M:%S", localtime_r(&now, &local));
    const char* identifier = entry.identifier.empty() ? "unknown" : entry.identifier.c_str();
    return Text("%s imx6 %s: %s\n", stamp, identifier, entry.message.c_str());
}

static void RewriteTextFile() {
    if (textFile != nullptr) fclose(textFile);
    textFile = fopen(HostPath(kTextFile).c_str(), "we");
    linesInFile = entries.size();
    if (textFile == nullptr) return;
    for (const KeptEntry& kept : entries) fputs(kept.line.c_str(), textFile);
    fflush(textFile);
}

static std::string ShownLine(const JournalEntry& entry) {
    return Text("%c %s\n", entry.priority, entry.message.c_str());
}

static void Keep(JournalEntry entry) {
    PassToFollowers(Feed::kJournal, ShownLine(entry));
    std::string line = JournalctlLine(entry);
    entries.push_back({std::move(entry), std::move(line)});
    if (entries.size() > kJournalEntries) entries.pop_front();
    if (++linesInFile > 2 * kJournalEntries) return RewriteTextFile();
    if (textFile == nullptr) return;
    fputs(entries.back().line.c_str(), textFile);
    fflush(textFile);
}

// Messages beyond the socket's limit come as a sealed memory file instead of a datagram.
static std::string ReadPassedFile(int descriptor) {
    struct stat status {};
    std::string text;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0 &&
        static_cast<size_t>(status.st_size) <= kDatagramLimit) {
        text.resize(static_cast<size_t>(status.st_size));
        const ssize_t size = pread(descriptor, text.data(), text.size(), 0);
        text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    }
    close(descriptor);
    return text;
}

static std::optional<std::string> ReceiveDatagram() {
    const ssize_t waiting = recv(journalSocket, nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (waiting < 0) return std::nullopt;
    std::string text(static_cast<size_t>(waiting), '\0');
    alignas(cmsghdr) char control[CMSG_SPACE(8 * sizeof(int))];
    iovec part{.iov_base = text.data(), .iov_len = text.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(journalSocket, &message, MSG_CMSG_CLOEXEC) < 0) return std::nullopt;

    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr; item = CMSG_NXTHDR(&message, item)) {
        if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS) continue;
        for (size_t at = 0; CMSG_LEN((at + 1) * sizeof(int)) <= item->cmsg_len; ++at) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(item) + at * sizeof(int), sizeof descriptor);
            text += ReadPassedFile(descriptor);
        }
    }
    return text;
}

static void Receive() {
    while (const std::optional<std::string> datagram = ReceiveDatagram()) {
        if (std::optional<JournalEntry> entry = ParseJournalDatagram(*datagram)) Keep(std::move(*entry));
    }
}

// A socket's address holds 107 characters; a board's folder may be longer, so the address goes through a descriptor.
static bool BindJournal(const std::filesystem::path& folder) {
    const int folderDescriptor = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/socket", folderDescriptor);
    unlinkat(folderDescriptor, "socket", 0);
    const bool bound = bind(journalSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                       chmod(address.sun_path, 0666) == 0;
    close(folderDescriptor);
    return bound;
}

void PowerOnJournal() {
    if (journalSocket >= 0) {
        ForgetDescriptor(journalSocket);
        close(journalSocket);
    }
    RewriteTextFile();
    journalSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const std::filesystem::path folder = HostPath(kFolder);
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    if (!BindJournal(folder)) Trace("journal", {{"error", std::strerror(errno)}});
    WatchDescriptor(journalSocket, [](uint32_t) { Receive(); });
}

VerbAnswer JournalVerb(const VerbWords& words) {
    const std::optional<Listing> listing = ParseListing(words);
    if (!listing || listing->clear) return Usage("journal");
    VerbAnswer answer{.follow = listing->follow ? Feed::kJournal : Feed::kNone};
    for (size_t at = entries.size() - std::min(listing->newest, entries.size()); at < entries.size(); ++at)
        answer.text += ShownLine(entries[at].entry);
    return answer;
}
