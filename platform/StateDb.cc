// Opening a state database, and the in-process store used without one.
#include "platform/StateDb.h"

#include "kernel/Dir.h"
#include "platform/RedisStateDb.h"

namespace Platform {

namespace {

class LocalStateDb : public StateDb {
 public:
  Kiv::Ptr<Kiv::Entity> mount(const std::string& path, const Kiv::Ptr<Kiv::Entity>& root,
                              const MountOptions&) override {
    entityAtPathIs(path, root);
    return root;
  }
  bool loaded() const override { return true; }
  bool waitLoaded(Kiv::Seconds) override { return true; }
};

}  // namespace

void entityAtPathIs(const std::string& path, const Kiv::Ptr<Kiv::Entity>& e) {
  Kiv::Ptr<Kiv::Dir> dir = Kiv::globalDir();
  std::string_view rest = path;
  for (size_t slash; (slash = rest.find('/')) != std::string_view::npos; rest.remove_prefix(slash + 1)) {
    if (slash) dir = dir->subdirIs(Kiv::Name(rest.substr(0, slash)));
  }
  dir->entryIs(Kiv::Name(rest), e);
}

std::unique_ptr<StateDb> stateDbOpen(const std::string& address) {
  if (address.empty()) return std::make_unique<LocalStateDb>();
  return std::make_unique<RedisStateDb>(address);
}

}  // namespace Platform
