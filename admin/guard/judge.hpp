// The look at a disk that is to be stamped, and the verdict.
#pragma once

#include "admin/guard/guard.hpp"
#include "admin/options.hpp"

namespace vdadm::guard {

/// Everything about a stamp that is to be, while the disk is held.
struct Judgement {
  inspect::Facts facts;
  Hold hold;
  Rehearsal rehearsal;
  std::vector<Objection> objections;
};

Judgement judge_stamp(const FileType &type, const std::string &name);

/// What was found out, what speaks against a stamp, and what would be written: the signatures to be wiped, too.
report::Object describe(const inspect::Facts &facts, const std::vector<Objection> &objections,
                        const Rehearsal &rehearsal, const FileType &type,
                        const std::vector<inspect::Signature> &wiped = {});

/// A line for each objection, and how it is overruled.
std::vector<std::string> sentences(const std::string &name,
                                   const std::vector<Objection> &objections);

/// Adds --overrule NAME, repeatable; a name that is no objection's, or cannot be overruled, is refused.
void declare_overruling(Options &options, std::vector<std::string> &overruled);

}  // namespace vdadm::guard
