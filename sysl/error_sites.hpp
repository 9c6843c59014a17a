// Every failing place of the system services: one line each, grouped by operation.
//
// Holds no behaviour. Words that a site adds are noted where it is raised and in sysl.h.
#pragma once

#include "sysl/error_record.hpp"

namespace sysl::sites {

// Name translation and normalisation
inline constexpr Site name_bad_argument{7202};
inline constexpr Site name_too_long{7204, 0, SiteWord::none};
inline constexpr Site name_variable_unreadable{7217};
inline constexpr Site name_climbs{7345};
inline constexpr Site name_absolute_too_long{7346, 0, SiteWord::none};

// Path search
inline constexpr Site composed_name_too_long{7411};
inline constexpr Site search_list_no_memory{7415};
inline constexpr Site search_element_too_long{7416, 0, SiteWord::none};

// Clock
inline constexpr Site time_of_day_unreadable{7206};

// Environment
inline constexpr Site environment_bad_call{21100};
inline constexpr Site environment_too_long{21101};
inline constexpr Site environment_no_memory{21102};
inline constexpr Site environment_no_value{21104};

// Signal registry
inline constexpr Site signal_out_of_range{21110, 0, SiteWord::none};
inline constexpr Site signal_handler_refused{21111, 0, SiteWord::none};
inline constexpr Site signal_not_free{21112, 0, SiteWord::none};
inline constexpr Site signal_second_final{21113, 0, SiteWord::none};
inline constexpr Site signal_flag_unsupported{21115};
inline constexpr Site signal_registered_twice{21117, 0, SiteWord::none};
inline constexpr Site signal_dispatcher_refused{21118, 0, SiteWord::none};

}  // namespace sysl::sites
