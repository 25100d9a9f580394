#include "ThreadWork.h"

namespace tarn {

constinit thread_local ThreadWork ThreadWork::t_work;

}  // namespace tarn
