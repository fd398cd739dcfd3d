// What a reader session reports as it happens, for whoever shows it: lines of text, a live screen,
// or a program that reads.
//
// Threads: the thread that turns the session's loop.
// Lifetime: outlives the session. Errors: none.
#pragma once

#include <KestrinBLESDK/Reader.h>
#include <KestrinBLESDK/platform/NSData.h>

#include <optional>
#include <string>
#include <vector>

namespace kestrin::app {

class Console;

class SessionReport {
 public:
  virtual ~SessionReport();
  /// The reader that the session works from now on; both texts as they came from the air.
  virtual void reader(const std::string& name, const std::string& identifier) = 0;
  virtual void plugged(bool isPlugged) = 0;
  virtual void frame(const std::optional<NSData>& frame) = 0;
  virtual void sent(const NSData& frame) = 0;
  /// Every reader seen so far, whenever one is added.
  virtual void seen(const std::vector<SeenReader>& /*readers*/) {}
  /// Several readers are meant. Returns whether somebody will `work` one of them; else the search
  /// ends here.
  virtual bool choose(const std::vector<SeenReader>& /*readers*/) { return false; }
};

/// READER, PLUGGED, UNPLUGGED, FRAME and SENT lines.
class LineReport final : public SessionReport {
 public:
  explicit LineReport(Console& console) : console_(console) {}
  void reader(const std::string& name, const std::string& identifier) override;
  void plugged(bool isPlugged) override;
  void frame(const std::optional<NSData>& frame) override;
  void sent(const NSData& frame) override;

 private:
  Console& console_;
};

}  // namespace kestrin::app
