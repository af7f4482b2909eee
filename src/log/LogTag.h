// The tag of everything the daemon log reports about itself.
#pragma once

namespace pelklog {

constexpr char kTag[] = "pelklogd";

}  // namespace pelklog
