#include "Choice.h"
#include "Commands.h"
#include "Files.h"

namespace vctk {

ExitCode RunCalls(const CommonOptions& options) {
  Session session(FindKeyList(options.keyList), ParseFilters(options.filters));
  session.RecordCalls(true);
  std::string failure;
  try {
    session.List();
  } catch (const Failure& error) {
    failure = error.what();  // the record has it, too
  }
  const std::string record = session.CallRecord();
  if (record.empty()) {
    throw Failure(
        kFailed, "the device library recorded nothing",
        failure.empty() ? "Not every maker's library has a record of its calls." : failure);
  }
  Print(record);
  return kDone;
}

}  // namespace vctk
