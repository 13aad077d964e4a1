// SPDX-License-Identifier: Apache-2.0
// Which names announce a secret. Case does not matter.
#ifndef QUORVANE_LOGGING_SECRET_NAMES_H_
#define QUORVANE_LOGGING_SECRET_NAMES_H_

#include <string_view>

namespace quorvane {

/// Whether a parameter of a URI's query carries a secret: `name` (decoded)
/// contains an unmistakable word such as "token", or a short word such as "key"
/// as a whole word: "accessKey", but not "monkey". Paging positions such as
/// "$skiptoken" are no secrets.
bool IsSecretParameter(std::string_view name);

/// Whether a member of an answer, or a header, carries a secret: `name`
/// (decoded) ends with an unmistakable word: "Password", "X-Auth-Token", but
/// not "PasswordPolicy".
bool IsSecretMember(std::string_view name);

/// Whether `text` contains a word that announces a password or a token. Finds
/// more than the others: a wrong positive does no harm here.
bool MentionsSecret(std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_SECRET_NAMES_H_
