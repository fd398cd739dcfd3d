// The two version symbols, as a program finds them that knows nothing but the library's file and
// their names. This one does not link the library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>

namespace kestrin::test {
namespace {

constexpr char kString[] = "@(#)PROGRAM:KestrinBLESDK  PROJECT:KestrinBLESDK-1\n";

class VersionSymbols : public ::testing::Test {
 protected:
  struct Close {
    void operator()(void* library) const { ::dlclose(library); }
  };

  void SetUp() override {
    // Found through this program's own search path.
    library_.reset(::dlopen("libKestrinBLESDK.so", RTLD_NOW | RTLD_LOCAL));
    ASSERT_NE(library_, nullptr) << "libKestrinBLESDK.so was not found, or cannot be loaded";
  }
  template <class Symbol>
  const Symbol* symbol(const char* name) const {
    return static_cast<const Symbol*>(::dlsym(library_.get(), name));
  }

 private:
  std::unique_ptr<void, Close> library_;
};

TEST_F(VersionSymbols, GiveTheNumberAsADouble) {
  const auto* const number = symbol<double>("KestrinBLESDKVersionNumber");
  ASSERT_NE(number, nullptr);
  EXPECT_EQ(*number, 1.0);
}

TEST_F(VersionSymbols, GiveTheTextWithALineFeedAndATerminatingZero) {
  const auto* const text = symbol<char>("KestrinBLESDKVersionString");
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, kString);
}

}  // namespace
}  // namespace kestrin::test
