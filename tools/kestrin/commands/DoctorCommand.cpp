// `kestrin doctor`: what of this machine works, and what to do about what does not.
#include <algorithm>
#include <string>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"

#ifdef KESTRIN_HAS_BLUEZ
#include "kestrin/bluez/Diagnosis.h"
#include "tools/kestrin/text/SafeText.h"
#endif

namespace kestrin::app {

#ifdef KESTRIN_HAS_BLUEZ
namespace {

std::string verdictInWords(bluez::Verdict verdict) {
  switch (verdict) {
    case bluez::Verdict::good:
      return "ok       ";
    case bluez::Verdict::trouble:
      return "TROUBLE  ";
    case bluez::Verdict::notSeen:
      return "-        ";
  }
  return {};
}

void tell(const bluez::Finding& finding, std::size_t subjectWidth, Console& console) {
  std::string text = verdictInWords(finding.verdict);
  const std::size_t indent = text.size() + subjectWidth + 2;
  text += printable(finding.subject);
  text.resize(std::max(indent, text.size() + 1), ' ');
  console.line(text + printable(finding.text));
  if (!finding.advice.empty()) {
    console.line(std::string(indent, ' ') + "-> " + printable(finding.advice));
  }
}

}  // namespace

int runDoctor(const DoctorRequest& request, Console& console) {
  const auto diagnosis = bluez::diagnose({.adapter = request.adapter, .busAddress = {}});
  std::size_t width = 0;
  for (const auto& finding : diagnosis.findings) width = std::max(width, finding.subject.size());
  for (const auto& finding : diagnosis.findings) tell(finding, width, console);
  console.line("");
  console.line(diagnosis.scanWorks ? "A scan works." : "A scan does not work.");
  const int printed = finishOutput(console);
  return diagnosis.scanWorks ? printed : kFailure;
}
#else
int runDoctor(const DoctorRequest& /*request*/, Console& console) {
  console.note(
      "doctor: this build has no real radio to look at; it has --radio simulated, which needs "
      "nothing of the machine (to build the real one: -DKESTRIN_WITH_BLUEZ=ON)");
  return kFailure;
}
#endif

}  // namespace kestrin::app
