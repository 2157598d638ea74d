#include "page/page_board.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>

#include "bench/control_client.h"
#include "kernel/supervisor.h"
#include "system/board.h"

// What a descriptor has for us now. False at its end.
static bool ReadPiece(int descriptor, std::string& piece) {
    std::array<char, 64 * 1024> chunk;
    const ssize_t size = recv(descriptor, chunk.data(), chunk.size(), MSG_DONTWAIT);
    piece.assign(chunk.data(), size > 0 ? size_t(size) : 0);
    return size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR));
}

static void Close(int descriptor) {
    ForgetDescriptor(descriptor);
    close(descriptor);
}

void AskBoardAsync(const std::vector<std::string>& words, std::function<void(bool good, std::string text)> answered) {
    const int board = SendVerb(Board.folder, words);
    if (board < 0) return answered(false, "The board is gone.");
    auto text = std::make_shared<std::string>();
    WatchDescriptor(board, [board, text, answered = std::move(answered)](uint32_t) {
        std::string piece;
        const bool more = ReadPiece(board, piece);
        text->append(piece);
        if (more) return;
        const auto tell = answered;  // this function goes with its watch
        const std::string all = *text;
        Close(board);
        all.empty() ? tell(false, "The board is gone.") : tell(all[0] == '0', all.substr(1));
    });
}

int FollowBoard(const std::vector<std::string>& words, std::function<void(std::string_view piece)> heard,
                std::function<void()> ended) {
    const int board = SendVerb(Board.folder, words);
    if (board < 0) return -1;
    auto started = std::make_shared<bool>(false);
    WatchDescriptor(board, [board, started, heard = std::move(heard), ended = std::move(ended)](uint32_t) {
        std::string piece;
        if (!ReadPiece(board, piece)) {
            ForgetDescriptor(board);
            return ended();
        }
        const size_t from = *started || piece.empty() ? 0 : 1;  // behind the status
        *started = *started || !piece.empty();
        if (piece.size() > from) heard(std::string_view(piece).substr(from));
    });
    return board;
}

void Unfollow(int following) {
    if (following >= 0) Close(following);
}
