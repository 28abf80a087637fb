#include "Ctl/Explain.h"

#include "Ctl/ControlClient.h"
#include "Ctl/ShowTrace.h"

#include <ostream>
#include <sstream>
#include <string_view>

namespace Ctl {

namespace {

constexpr size_t events = 20;

std::string commandOf(const ExplainRequest& request) {
    return "explain " + request.address.toStrep() +
           (request.vlanId ? " " + request.vlanId->toStrep() : "") + (request.json ? " -j" : "");
}

/// Without its line feed, so that a document can stand within another one; `otherwise` for nothing.
std::string pieceOf(std::string text, const char* otherwise) {
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text.empty() ? otherwise : text;
}

} // namespace

int explain(const ExplainRequest& request, std::ostream& out, std::ostream& errors) {
    std::string now;
    auto take = [&now](std::string_view piece) {
        now += piece;
        return true;
    };
    int nowStatus = askDaemon(request.runtimeDirectory, commandOf(request), take, errors);
    std::ostringstream then;
    int thenStatus = showTrace({.directory = request.logDirectory,
                                .last = events,
                                .address = request.address,
                                .vlanId = request.vlanId,
                                .json = request.json},
                               then, errors);
    if (request.json) {
        // Only whole documents: what broke off is none.
        out << "{\"now\":" << pieceOf(nowStatus == 0 ? now : "", "null")
            << ",\n\"events\":" << pieceOf(then.str(), "[]") << "}\n";
    } else {
        out << now << (now.empty() ? "" : "\n") << "last events\n"
            << pieceOf(then.str(), "none") << '\n';
    }
    if (!out.flush()) {
        errors << "error: the explanation cannot be written\n";
        return 1;
    }
    return nowStatus != 0 ? nowStatus : thenStatus;
}

} // namespace Ctl
