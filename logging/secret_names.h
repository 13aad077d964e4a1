// SPDX-License-Identifier: Apache-2.0
// Names of secrets. Letter case does not matter.
#ifndef QUORVANE_LOGGING_SECRET_NAMES_H_
#define QUORVANE_LOGGING_SECRET_NAMES_H_

#include <string_view>

namespace quorvane {

/// Whether a query parameter of a URI is a secret: `name` (decoded) contains an
/// unambiguous word such as "token", or a short word such as "key" as a whole
/// word: "accessKey", but not "monkey". Positions in a paged collection, such
/// as "$skiptoken", are not secret.
bool IsSecretParameter(std::string_view name);

/// Whether a member of a response, or a header, is a secret: `name` (decoded)
/// ends with an unambiguous word: "Password", "X-Auth-Token", but not
/// "PasswordPolicy".
bool IsSecretMember(std::string_view name);

/// Whether `text` contains a word for a password or a token. Less strict than
/// the functions above: a false positive does no harm here.
bool MentionsSecret(std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_SECRET_NAMES_H_
