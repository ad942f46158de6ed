// A piece that comes in the place of another one of its name: one change (change_plan.h) deletes
// the old piece, or makes it inactive, and brings the new one. The name is in use until the change
// is decided, so the manifest of the new piece waits in a place of its own:
//
//   coming/<node key>/<xx>/<name hash>.<change: 16 digits>
//
// It shows there once its change is done, and is then moved to pieces/.../<name hash>. Below, A is
// the old piece, B the new one, H the name pieces/.../<name hash>, and C any other piece that a
// process puts at H.
//
// The steps of the maker:                           The steps of a process that commits C:
//   1. put the plan, then the record of B             1. put C at H, if H is absent
//   2. put B in coming/                               2. look into coming/: undo each change that
//   3. look into coming/, as the other one does          waits there for the name, unless it is
//   4. look at H: only A may be there, or nothing        done already: then C has lost
//   5. decide "done"                                  3. look at H: it must be C, or C has lost
//   6. take A away from H
//   7. link B to H, if H is absent; when it is not,   A C that has lost is taken back, and its
//      take away what is there; look again            process reports that the name is taken. C
//   8. take B away from coming/; remove the plan      is acknowledged after 3 only.
//                                                     A piece that a repair brings back from the
//                                                     quarantine is such a C, too.
//
// What holds, whichever of these steps a process stops before, dies before, or does late:
//
//   1. A is at H, or B is found: B leaves coming/ only when it is at H. Who looks for the name
//      looks at H, into coming/, and at H again. Who visits every manifest visits coming/ first.
//   2. B in coming/ shows only when its change is done, and then nothing else of the name does. A
//      change that is undone, or not decided, holds no name.
//   3. C and B are not both acknowledged. If B was in coming/ when C looked (its step 2), C undid
//      the change or lost. If B was there before and has left, B went to H, and C was not at H
//      then: C finds that in its step 3. If B was not there yet, C was at H already, and stays
//      there unless it is deleted; the maker finds it in its step 4, or C went away again. Of two
//      makers the one that looks last into coming/ finds the other one there.
//   4. So what lies at H while a B whose change is done is in coming/ was never acknowledged, and
//      may be taken away (step 7). It is judged before B is looked for once more: B in coming/
//      after the judgement says that it was there at the time of it.
//   5. Step 7 links the very blob in coming/, which fails once that is gone. So a process that
//      does it late brings back no B that was removed meanwhile. Where blobs cannot have two names
//      it puts a copy, and looks into coming/ again. When B is gone there, B was at H before the
//      copy, or the copy was taken for B: who removes B, or makes it inactive, does step 7 and 8
//      first, then puts B into its next place, then takes it away from H. So if B lies in a later
//      place by now, or has been purged, the copy is taken back, else it stays.
//
// Repositories before layout 4 have no such place, as releases of that time would free the blocks
// that only a piece there needs: there the name must be free when the piece is begun.
#ifndef KEEL_CLIENT_STORE_CHANGES_COMING_PIECE_H
#define KEEL_CLIENT_STORE_CHANGES_COMING_PIECE_H

#include "client/store/changes/object_record.h"

#include <string>

namespace arca::store
{

/// Far more than the places that a piece is in at once. A place that a removal calls gone, and a
/// look finds again, must not hold the host up for ever.
constexpr int kMaxPlaces = 100;

/// Returns true for a name in coming/.
bool isComingName(const std::string &blobName);
/// Returns true for a name in coming/ that carries a change. A manifest under any other name there
/// was moved by hand: no change brings it in, and none may take it away.
bool waitsForChange(const std::string &blobName);
/// Returns where the piece waits that a change brings to pieces/.../<name hash>.
std::string comingNameOf(const std::string &activeName, ChangeId change);
/// Returns where a piece in coming/ is brought to.
std::string activeNameOf(const std::string &comingName);

} // namespace arca::store

#endif
