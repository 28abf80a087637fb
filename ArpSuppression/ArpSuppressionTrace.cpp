#include "ArpSuppression/ArpSuppressionTrace.h"

#include <boost/system/error_code.hpp>
#include <cerrno>

namespace ArpSuppression {

const Vela::TraceHandle trace("ArpSuppression");

std::string errnoText() {
    return boost::system::error_code(errno, boost::system::system_category()).message();
}

} // namespace ArpSuppression
