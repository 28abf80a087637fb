// An agent that does on its side of a library's boundary what AgentLibraryTest looks at from the
// other side.

#include "Platform/Agent/AgentFactory.h"
#include "Platform/Agent/PlatformAbi.h"
#include "Platform/Base/Errors.h"
#include "Platform/Model/Bridging/Config.h"
#include "Platform/Model/Bridging/Fid.h"
#include "Platform/Model/Interface/IntfStatus.h"

namespace {

class BoundaryAgent final : public Vela::Agent {
  public:
    explicit BoundaryAgent(std::string name) : Agent(std::move(name)) {}
    const char* typeName() const noexcept override { return "BoundaryAgent"; }

    /// Its name says what to do.
    void doInit() override {
        if (name() == "throw") {
            throwRangeError();
        } else if (name() == "react") {
            auto config = entityManager()->entity<Bridging::Config>("bridging/config");
            reaction_ = config->bridgeMacAddrAttribute().react(this, [] { throwRangeError(); });
        } else if (name() == "catch") {
            try {
                commandRequestDirSm().callback("throw")->handleCommand(-1, "throw");
            } catch (const Vela::RangeError& error) {
                localEntitiesCreatedIs(true);
            }
        } else if (name() == "interfaces") {
            lookAtInterfaces();
        }
    }
    void doMountsComplete(Vela::MountStatus, const Vela::Ptr<Vela::EntityManager>&) override {}

  private:
    static void throwRangeError() { Bridging::Fid(65536); }

    /// Publishes at "made/there" which of two interfaces it finds in what is at "made/here", and
    /// one that nobody has named before.
    void lookAtInterfaces() {
        auto given = entityManager()->entity<Interface::AllIntfStatusDir>("made/here");
        auto answer = Vela::make<Interface::AllIntfStatusDir>("there");
        for (const char* name : {"Boundary1", "Boundary2"}) {
            if (given && given->intfStatus(Zinc::IntfId(name))) {
                answer->intfStatusIs(Zinc::IntfId(name));
            }
        }
        answer->intfStatusIs(Zinc::IntfId("Boundary3"));
        entityManager()->entityIs("made/there", answer);
    }

    Vela::Reaction reaction_;
};

} // namespace

extern "C" [[gnu::visibility("default")]] Vela::Agent* velaAgentFactory(uint64_t abi,
                                                                        const char* name) {
    return abi == BUILT_ABI ? Vela::make<BoundaryAgent>(name).detach() : nullptr;
}
