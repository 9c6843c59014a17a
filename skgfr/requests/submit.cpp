// Submission of asynchronous requests. There is no engine to hand them to, and each is told so
// rather than carried out in another way behind the client's back.
#include "skgfr/requests/submit.hpp"

#include <cerrno>

#include "skgfr/base/error_sites.hpp"

namespace skgfr {

bool refuse_submission(skgfrrq *request) {
  skgfriosb *const status = request->iosb_skgfrrq;
  fail(status->slerc_skgfriosb, sites::submission_refused, ENOSYS, request->blockno_skgfrrq);
  status->status_skgfriosb = skgfriIOERROR;
  return false;
}

}  // namespace skgfr
