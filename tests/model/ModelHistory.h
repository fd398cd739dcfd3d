// A history as it must happen: takes the steps on the model.
//
// Threads: one. Lifetime: one history. Errors: none.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "model/ManagerModel.h"
#include "model/ModelWorld.h"
#include "model/Step.h"

namespace kestrin::test {

class ModelHistory {
 public:
  ModelHistory();
  void take(const Step& step);
  std::vector<std::string> takeLines() { return world_.takeLines(); }
  std::multiset<std::string> takeReleased() { return world_.takeReleased(); }
  /// Of the managers that are there, and who else is.
  [[nodiscard]] std::string fields() const;

 private:
  using Event = std::function<void(ModelManager&)>;
  void act(const Step& step);
  void ask(const ModelManager& manager);
  void prepare(const Step& step);
  void change(const Step& step);
  void play(const Step& step);
  void playEvent(const Step& step, ModelManager& manager);
  void setValue(const Step& step);
  void makeManager(unsigned slot);
  void makeDelegate(std::array<std::shared_ptr<ModelDelegate>, 2>& delegates, unsigned index,
                    unsigned implemented, const std::string& kind);
  void answer(const std::string& operation, bool result);

  ModelWorld world_;
  std::array<std::shared_ptr<ModelManager>, kManagers> managers_;
  std::array<std::weak_ptr<ModelManager>, kManagers> latest_;
  std::vector<std::weak_ptr<ModelManager>> all_;
  std::array<std::shared_ptr<ModelDelegate>, kDelegates> delegates_;
  std::array<std::shared_ptr<ModelDelegate>, kReceivers> receivers_;
  int delegatesMade_ = 0;
  bool reacting_ = false;
  bool droppedInside_ = false;
};

}  // namespace kestrin::test
