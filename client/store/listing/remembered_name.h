// Where this host remembers the pieces of a node (catalogue_file.h), and what it still knows of one
// whose manifest is damaged.
#ifndef KEEL_CLIENT_STORE_LISTING_REMEMBERED_NAME_H
#define KEEL_CLIENT_STORE_LISTING_REMEMBERED_NAME_H

#include "client/store/space/node_space.h"

namespace arca::store
{

/// Returns the path of the catalogue's file; empty when this host keeps none.
std::string cataloguePathOf(NodeSpace &space);
/// Returns the key that its rows are sealed with.
Result<SecretKey> catalogueKeyOf(const NodeSpace &space);

/// Returns the name of the piece whose manifest was listed in that blob, active or inactive; empty
/// when the catalogue is not there, or does not know it. Makes no file where there is none.
std::string rememberedName(NodeSpace &space, const std::string &blobName);

} // namespace arca::store

#endif
