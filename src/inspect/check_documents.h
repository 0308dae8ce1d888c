// The check of stored documents, or of files to be stored, before anything is touched.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Checks documents against their schemas, against each other, and for what they mean together. Each word of
/// `documents` is the name of a stored document ("firewall"), or a file to be stored in its place: one whose
/// base name is that name and a suffix ("/tmp/firewall.json"), or "firewall=FILE". No word stands for all
/// stored documents. All are read in any case, as files: findings of documents that were not named are
/// reported where they depend on one that was. Nothing is changed, no lock is taken, and no value of a secret
/// is reported.
///
/// `report` becomes an object with `documents`, a list of what was read and what could not be, and
/// `findings`, a list in the order of documents and lines, each with `path`, `line`, `column`, `pointer`
/// (RFC 6901), `grade`, `what` is wrong and what would be `right` (check.json in
/// /usr/share/networkmanagement/schema/). Of the grade "error" is what a setup refuses, what does not come
/// into force, and what cannot work; "warning" is what is accepted and passed over.
///
/// 0 without an error; NM_ERR_BAD_VALUE with one; NM_ERR_NOT_FOUND, whatever was found, if a document that
/// was asked for could not be checked: `reason` says why.
int check_documents(const std::vector<std::string>& documents, Json::Value& report);

#pragma GCC visibility pop
