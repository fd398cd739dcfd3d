// Readers that are held.
#include <pybind11/stl.h>

#include "KestrinBLESDK/Reader.h"
#include "Parts.h"

namespace kestrin::python {
namespace {

/// Calls the Python reader's own methods, which call what the application gave it.
class Owner {
 public:
  Owner(const std::shared_ptr<Parts>& parts, py::object reference)
      : parts_(parts), reference_(std::move(reference)) {}

  /// `makeArguments` makes a tuple, with Python's lock.
  template <class MakeArguments>
  void call(const char* method, const MakeArguments& makeArguments) const noexcept {
    const auto parts = parts_.lock();
    if (!parts || !pythonIsThere()) return;
    const py::gil_scoped_acquire lock;
    py::object culprit;
    try {
      culprit = reference_.get();
      if (culprit) culprit.attr(method)(*makeArguments());
    } catch (py::error_already_set& error) {
      error.restore();
      parts->takeException(culprit);
    }
  }

 private:
  const std::weak_ptr<Parts> parts_;
  const WeakReference reference_;
};

/// Code and text; zero and none when there is no error.
py::tuple errorTuple(const std::optional<NSError>& error) {
  if (!error) return py::make_tuple(0, "");
  return py::make_tuple(error->code, error->text);
}

py::tuple answerTuple(std::uint64_t key, const std::optional<RcpFrame>& answer,
                      const std::optional<NSError>& error) {
  const py::object frame = answer ? pythonData(NSData(answer->bytes)) : py::none();
  return py::make_tuple(key, frame, errorTuple(error));
}

/// What Python holds of a reader.
class ReaderHandle {
 public:
  ReaderHandle(const PlatformHandle& platform, const py::object& owner,
               const ReaderOptions& options)
      : parts_(platform.parts) {
    platform.get().checkThread();
    owner_ = std::make_shared<Owner>(parts_, owner);
    NSError error;
    withoutLock([&] { reader_ = Reader::create(parts_->platform, options, handlers(), &error); });
    if (!reader_) throw std::runtime_error(error.text);
  }
  ~ReaderHandle() { release(); }
  ReaderHandle(const ReaderHandle&) = delete;
  ReaderHandle& operator=(const ReaderHandle&) = delete;

  /// Does `work` with the reader, which outlives it even if a handler releases it.
  template <class Work>
  auto call(const Work& work) const {
    if (!reader_) throwReleased("reader");
    const auto parts = parts_;
    return parts->call([&work, reader = reader_] { return work(*reader); });
  }

  void send(const NSData& frame, std::uint64_t key) const {
    call([&](Reader& reader) {
      reader.send(frame, [owner = owner_, key](const std::optional<NSError>& error) {
        owner->call("_sent", [&] { return py::make_tuple(key, errorTuple(error)); });
      });
    });
  }
  [[nodiscard]] Reader::ExchangeId exchange(const NSData& frame, double limit,
                                            std::uint64_t key) const {
    return call([&](Reader& reader) {
      return reader.exchange(frame, timeFromSeconds(limit),
                             [owner = owner_, key](const auto& answer, const auto& error) {
                               owner->call("_answered",
                                           [&] { return answerTuple(key, answer, error); });
                             });
    });
  }
  void close(std::uint64_t key) const {
    call([&](Reader& reader) {
      reader.close(
          [owner = owner_, key] { owner->call("_closed", [&] { return py::make_tuple(key); }); });
    });
  }

  [[nodiscard]] bool isReleased() const { return reader_ == nullptr; }
  void checkThread() const {
    if (parts_) parts_->checkThread();
  }

  /// Closes the link; nobody is called any more.
  void release() noexcept {
    auto reader = std::exchange(reader_, nullptr);
    const auto parts = std::exchange(parts_, nullptr);
    if (!reader) return;
    // The garbage collector runs on any thread.
    if (std::this_thread::get_id() != parts->thread) {
      parts->loop->post([kept = std::move(reader)] {});
    } else {
      withoutLock([&reader] { reader.reset(); });
    }
  }

 private:
  [[nodiscard]] ReaderHandlers handlers() const {
    const auto owner = owner_;
    return {.onPhase =
                [owner](Reader&, ReaderPhase phase) {
                  owner->call("_phase", [&] { return py::make_tuple(std::string(nameOf(phase))); });
                },
            .onFrame =
                [owner](Reader&, const RcpFrame& frame) {
                  owner->call("_frame",
                              [&] { return py::make_tuple(pythonData(NSData(frame.bytes))); });
                },
            .onValue =
                [owner](Reader&, const NSData& value) {
                  owner->call("_value", [&] { return py::make_tuple(pythonData(value)); });
                },
            .onTrouble =
                [owner](Reader&, const NSError& trouble) {
                  owner->call("_trouble", [&] { return errorTuple(trouble); });
                },
            .onSeen = [owner](Reader&) { owner->call("_seen", [] { return py::tuple(); }); }};
  }

  std::shared_ptr<Parts> parts_;
  std::shared_ptr<Owner> owner_;
  std::shared_ptr<Reader> reader_;
};

std::optional<Time> limitFrom(const std::optional<double>& seconds) {
  if (!seconds) return std::nullopt;
  return timeFromSeconds(*seconds);
}

std::shared_ptr<ReaderHandle> make(const PlatformHandle& platform, const py::object& owner,
                                   const std::string& reader, bool takesFirst,
                                   const std::optional<double>& findLimit,
                                   const std::optional<double>& plugInLimit, bool reconnect,
                                   std::size_t mostWaitingFrames) {
  ReaderOptions options;
  options.reader = reader;
  options.findLimit = limitFrom(findLimit);
  options.plugInLimit = limitFrom(plugInLimit);
  options.ambiguity = takesFirst ? Ambiguity::takeFirst : Ambiguity::refuse;
  options.reconnect = reconnect;
  options.mostWaitingFrames = mostWaitingFrames;
  return std::make_shared<ReaderHandle>(platform, owner, options);
}

/// Names come from the air and need not be text.
py::list pythonReaders(const std::vector<SeenReader>& readers) {
  py::list list;
  for (const SeenReader& each : readers) {
    const auto name = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        each.name.data(), static_cast<py::ssize_t>(each.name.size()), "backslashreplace"));
    list.append(py::make_tuple(name, each.identifier));
  }
  return list;
}

}  // namespace

void defineReaders(py::module_& module) {
  py::class_<ReaderHandle, std::shared_ptr<ReaderHandle>>(
      module, "ReaderBase", "A reader that is held, to which the package's adds handlers.")
      .def(py::init(&make), py::arg("platform"), py::arg("owner"), py::arg("reader"),
           py::arg("takes_first"), py::arg("find_limit"), py::arg("plug_in_limit"),
           py::arg("reconnect"), py::arg("most_waiting_frames"), "A reader on a platform.")
      .def(
          "_send",
          [](const ReaderHandle& it, const py::object& frame, std::uint64_t key) {
            it.send(dataFrom(frame, "a frame"), key);
          },
          py::arg("frame"), py::arg("key"), "Sends a frame.")
      .def(
          "_exchange",
          [](const ReaderHandle& it, const py::object& frame, double limit, std::uint64_t key) {
            return it.exchange(dataFrom(frame, "a frame"), limit, key);
          },
          py::arg("frame"), py::arg("limit"), py::arg("key"), "Sends a frame for an answer.")
      .def(
          "_forget",
          [](const ReaderHandle& it, Reader::ExchangeId exchange) {
            it.call([&](Reader& reader) { reader.forget(exchange); });
          },
          py::arg("exchange"), "Waits for an answer no longer.")
      .def("_close", &ReaderHandle::close, py::arg("key"), "Ends everything.")
      .def(
          "choose",
          [](const ReaderHandle& it, const std::string& identifier) {
            return it.call([&](Reader& reader) { return reader.choose(identifier); });
          },
          py::arg("identifier"), "Takes one of the seen readers in the next turn.")
      .def(
          "leave", [](const ReaderHandle& it) { it.call([](Reader& reader) { reader.leave(); }); },
          "Gives the link up until `come_back`, in the next turn.")
      .def(
          "come_back",
          [](const ReaderHandle& it) { it.call([](Reader& reader) { reader.comeBack(); }); },
          "Searches or connects again, in the next turn.")
      .def_property_readonly(
          "_phase_name",
          [](const ReaderHandle& it) {
            return it.call(
                [](const Reader& reader) { return std::string(nameOf(reader.phase())); });
          },
          "The phase's name.")
      .def_property_readonly(
          "_name",
          [](const ReaderHandle& it) {
            return pythonReaders(it.call([](const Reader& reader) {
              return std::vector<SeenReader>{{reader.name(), reader.identifier()}};
            }));
          },
          "Name and identifier.")
      .def_property_readonly(
          "has_link",
          [](const ReaderHandle& it) {
            return it.call([](const Reader& reader) { return reader.hasLink(); });
          },
          "Whether there is a link or an attempt.")
      .def_property_readonly(
          "_seen_readers",
          [](const ReaderHandle& it) {
            return pythonReaders(it.call([](const Reader& reader) { return reader.seen(); }));
          },
          "Every reader that the search has seen.")
      .def_property_readonly(
          "_candidates",
          [](const ReaderHandle& it) {
            return pythonReaders(it.call([](const Reader& reader) { return reader.candidates(); }));
          },
          "The seen readers that are meant.")
      .def(
          "_release",
          [](ReaderHandle& it) {
            it.checkThread();
            it.release();
          },
          "Closes the link and lets go of the reader.")
      .def_property_readonly("is_released", &ReaderHandle::isReleased,
                             "Whether `release` was called.");
}

}  // namespace kestrin::python
