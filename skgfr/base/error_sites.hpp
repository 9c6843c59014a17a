// Every failing place of the file layer: one line each, grouped by operation.
//
// A site is a code and the number that tells the place apart, in the first detail word unless the
// line says otherwise; values that a failure adds fill the remaining words. Holds no behaviour.
#pragma once

#include "sysl/error_record.hpp"

namespace skgfr {
using sysl::begin;
using sysl::begin_code_only;
using sysl::fail;
using sysl::fail_keep;
using sysl::failed;
using sysl::recode;
using sysl::Site;
using sysl::SiteWord;
}  // namespace skgfr

namespace skgfr::sites {

// Context
inline constexpr Site context_open_limit{27078, 1};
inline constexpr Site context_size_limit{27032, 1};
inline constexpr Site context_wakeup_unregistered{27048};
inline constexpr Site context_wakeup_unread{27049, 1};
inline constexpr Site context_wakeup_unchanged{27049, 2};
inline constexpr Site end_outstanding{27073, 0, SiteWord::none};
inline constexpr Site end_refused{27083};

// Block 0
inline constexpr Site header_old_layout_memory{27044, 8};
inline constexpr Site header_invalid{27047, 7};
inline constexpr Site upgrade_seal{27050, 2};
inline constexpr Site upgrade_memory{27044, 9};
inline constexpr Site upgrade_seek{27043, 6};
inline constexpr Site upgrade_write{27044, 10};

// Identification
inline constexpr Site identify_block_size{27035, 2, SiteWord::second};
inline constexpr Site identify_name{27036, 2, SiteWord::second};
inline constexpr Site identify_stat{27037, 3};
inline constexpr Site identify_kind{27037, 5};
inline constexpr Site identify_size{27046, 1};
inline constexpr Site identify_open{27041, 2};
inline constexpr Site identify_seek{27043, 2};
inline constexpr Site identify_read{27047, 1};
inline constexpr Site identify_invalid{27047, 2};
inline constexpr Site identify_close{27045, 2};
inline constexpr Site mount_canonical_name{27036, 12};
inline constexpr Site mount_stat{27037, 13};
inline constexpr Site mount_directory{27054, 1};
inline constexpr Site mount_table{27054, 2};
inline constexpr Site mount_options{27054, 3};

// Size queries
inline constexpr Site file_size_name{27036, 10, SiteWord::second};
inline constexpr Site file_size_stat{27037, 8};
inline constexpr Site file_size_kind{27037, 4};
inline constexpr Site file_size_open{27041, 6};
inline constexpr Site file_size_unknown{27072, 1};
inline constexpr Site block_size_name{27036, 5, SiteWord::second};
inline constexpr Site block_size_stat{27037, 7};
inline constexpr Site block_size_open{27041, 7};
inline constexpr Site block_size_seek{27043, 5};
inline constexpr Site block_size_read{27047, 3};
inline constexpr Site block_size_invalid{27047, 4};
inline constexpr Site block_size_close{27045, 6};
inline constexpr Site block1_name{27036, 7, SiteWord::second};
inline constexpr Site block1_stat{27037, 14};
inline constexpr Site block1_open{27041, 8};
inline constexpr Site block1_seek{27043, 3};
inline constexpr Site block1_read{27047, 5};
inline constexpr Site block1_invalid{27047, 6};
inline constexpr Site block1_close{27045, 7};
inline constexpr Site sector_size_name{27036, 13, SiteWord::second};
inline constexpr Site sector_size_stat{27037, 15};
inline constexpr Site sector_size_open{27041, 9};
inline constexpr Site reach_seal{27050, 13};
inline constexpr Site reach_block_size{27035, 5, SiteWord::second};
inline constexpr Site open_limit_unread{27074};
inline constexpr Site open_limit_low{27075};
inline constexpr Site open_limit_unchanged{27076};

// Creation
inline constexpr Site create_block_size{27035, 1, SiteWord::second};
inline constexpr Site create_name{27036, 1, SiteWord::second};
inline constexpr Site create_stat{27037, 1};
inline constexpr Site create_new_stat{27037, 2};
inline constexpr Site create_exists{27038, 1};
inline constexpr Site create_raced{27038, 2};
inline constexpr Site create_memory{27044, 1};
inline constexpr Site create_old_layout_memory{27044, 2};
inline constexpr Site create_write{27044, 3};
inline constexpr Site create_length{27044, 4};
inline constexpr Site create_limit{27039, 3};
inline constexpr Site create_directory{27054};
inline constexpr Site create_refused{27040};
inline constexpr Site create_device_open{27041, 1};
inline constexpr Site create_device_small{27042, 1};
inline constexpr Site create_seek{27043, 1};
inline constexpr Site create_close{27045, 1};

// Resize, recomputation, forced failures
inline constexpr Site resize_seal{27050, 7};
inline constexpr Site resize_block_size{27035, 3, SiteWord::second};
inline constexpr Site resize_stat{27037, 9};
inline constexpr Site resize_uneven{27046, 2};
inline constexpr Site resize_limit{27039, 4};
inline constexpr Site resize_open{27041, 4};
inline constexpr Site resize_memory{27044, 5};
inline constexpr Site resize_old_layout_memory{27044, 6};
inline constexpr Site resize_write{27044, 7};
inline constexpr Site resize_seek{27043, 4};
inline constexpr Site resize_length{27059, 2};
inline constexpr Site resize_device_unreachable{27042, 2};
inline constexpr Site resize_device_small{27042, 3};
inline constexpr Site resize_close{27045, 4};
inline constexpr Site recompute_seal{27050, 8};
inline constexpr Site recompute_block_size{27035, 4, SiteWord::second};
inline constexpr Site recompute_stat{27037, 10};
inline constexpr Site recompute_uneven{27046, 3};
inline constexpr Site recompute_open{27041, 5};
inline constexpr Site recompute_close{27045, 5};
inline constexpr Site forced_failures_seal{27050, 9};

// Open, close, flush, locks, vector question
inline constexpr Site open_seal{27050, 1};
inline constexpr Site open_forced_failure{27051, 1};
inline constexpr Site open_ceiling{27077};
inline constexpr Site open_limit{27092, 0, SiteWord::none};
inline constexpr Site open_refused{27041, 3};
inline constexpr Site open_close_on_exec{27060};
inline constexpr Site close_seal{27050, 2};
inline constexpr Site close_outstanding{27073, 0, SiteWord::none};
inline constexpr Site close_flush{27052, 1};
inline constexpr Site close_refused{27045, 3};
inline constexpr Site flush_seal{27050, 3};
inline constexpr Site flush_refused{27052, 2};
inline constexpr Site question_seal{27050, 6};
inline constexpr Site question_synchronous{27057};
inline constexpr Site question_unknown{27058};
inline constexpr Site lock_seal{27050, 11};
inline constexpr Site lock_mode{27088, 10};
inline constexpr Site lock_write_only{27087, 9};
inline constexpr Site lock_held{27086, 8};
inline constexpr Site lock_query{27086, 9};
inline constexpr Site lock_no_holder{27086, 10};
inline constexpr Site unlock_seal{27050, 12};
inline constexpr Site unlock_refused{27089, 11};

// Deletion
inline constexpr Site delete_name{27036, 4, SiteWord::second};
inline constexpr Site delete_stat{27037, 6};
inline constexpr Site delete_refused{27056};
inline constexpr Site directory_name{27036, 11, SiteWord::second};
inline constexpr Site directory_stat{27037, 11};
inline constexpr Site directory_kind{27037, 12};
inline constexpr Site directory_refused{27093};
inline constexpr Site directory_link_refused{27056};

// Device lists
inline constexpr Site device_list_seal{27050, 9};

// Discovery and search
inline constexpr Site discovery_string{15031, 41};
inline constexpr Site discovery_expansion{15031, 42};
inline constexpr Site discovery_memory{15031, 42};
inline constexpr Site examine_access{15025, 42};
inline constexpr Site examine_stat{27037, 42};
inline constexpr Site examine_kind{15059, 42};
inline constexpr Site examine_open{27041, 42};
inline constexpr Site search_name{27036, 6, SiteWord::second};

// Requests
inline constexpr Site request_seal{27050, 10};
inline constexpr Site request_forced_failure{27051, 2};
inline constexpr Site request_synchronous_handle{27064};
inline constexpr Site request_asynchronous_vector{27065};
inline constexpr Site request_vector_length{27066, 0, SiteWord::none};
inline constexpr Site request_length{27067, 2};
inline constexpr Site request_alignment{27068, 2};
inline constexpr Site request_block_unknown{27068, 3};
inline constexpr Site request_bounds{27069, 0, SiteWord::none};
inline constexpr Site element_length{27067, 1};
inline constexpr Site element_alignment{27068, 1};
inline constexpr Site submission_refused{27070, 1};
inline constexpr Site list_submission_refused{27070, 2};
inline constexpr Site vector_seek{27071, 0, SiteWord::none};
inline constexpr Site vector_transfer{27072, 3};
inline constexpr Site positioned_transfer{27072, 4};
inline constexpr Site converted_transfer{27072, 5};

// Completions
inline constexpr Site completion_error{27061, 0, SiteWord::none};
inline constexpr Site completion_short{27085, 0, SiteWord::none};
inline constexpr Site collection_failed{27083};

}  // namespace skgfr::sites
