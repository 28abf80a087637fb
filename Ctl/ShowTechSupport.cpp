#include "Ctl/ShowTechSupport.h"

#include "Ctl/ControlClient.h"
#include "Platform/Base/JsonWriter.h"

#include <ostream>
#include <string_view>

namespace Ctl {

namespace {

/// Writes lines as JSON, section by section.
class Sections {
  public:
    explicit Sections(std::ostream& out) : out_(out) {
        json_.beginObject().key("sections").beginRows();
    }

    /// The next bytes, wherever lines end. Returns whether they could be written.
    bool feed(std::string_view bytes) {
        for (size_t end; (end = bytes.find('\n')) != bytes.npos; bytes.remove_prefix(end + 1)) {
            line_ += bytes.substr(0, end);
            addLine();
        }
        line_ += bytes;
        out_ << json_.take();
        return out_.good();
    }
    void end() {
        if (!line_.empty()) {
            addLine();
        }
        endSection();
        out_ << json_.endArray().endObject().take();
    }

  private:
    void addLine() {
        if (!inSection_ || (!line_.empty() && line_.front() != ' ')) {
            endSection();
            json_.beginObject().field("title", line_).key("text").beginText();
            inSection_ = true;
        } else {
            json_.addText(line_).addText("\n");
        }
        line_.clear();
    }
    void endSection() {
        if (inSection_) {
            json_.endText().endObject();
            inSection_ = false;
        }
    }

    std::ostream& out_;
    Vela::JsonWriter json_;
    std::string line_;
    bool inSection_ = false;
};

} // namespace

int showTechSupportJson(const std::string& runtimeDirectory, std::ostream& out,
                        std::ostream& errors) {
    Sections sections(out);
    bool begun = false;
    auto take = [&](std::string_view piece) {
        begun = true;
        return sections.feed(piece);
    };
    int status = askDaemon(runtimeDirectory, "show tech-support", take, errors);
    if (status == 0 || begun) {
        sections.end();
    }
    if (!out.flush()) {
        errors << "error: the answer cannot be written\n";
        return 1;
    }
    return status;
}

} // namespace Ctl
