/*
 * The one way in which the three programs report that a step failed.
 */
#ifndef SHARING_FAILURE_H
#define SHARING_FAILURE_H

#include <stdexcept>
#include <string>

#include "zel_common.h"

namespace sharing
{

/** A step that failed: its result and a plain sentence. */
class failure : public std::runtime_error
{
  public:
    failure(zel_err_e result, const std::string &sentence) : std::runtime_error(sentence), code(result) {}
    const zel_err_e code;
};

} // namespace sharing

#endif
