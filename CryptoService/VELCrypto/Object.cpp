#include "Object.h"

namespace velcrypto {

unsigned long& LastNativeCode() {
  thread_local unsigned long code = 0;
  return code;
}

}  // namespace velcrypto
