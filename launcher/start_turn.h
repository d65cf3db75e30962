#pragma once

// The turns of one user's starts. Two starts at once would remove each other's client folder, or
// one would kill the client that the other has just opened. So a start has the turn from before it
// looks for a running client until it has opened one. It takes the turn again to store a launch
// agent. Main thread only.
namespace teravolant {

/// Takes the turn, unless this start has it already. Blocks while another start of this user has
/// it, for at most 30 s or until termination is requested. After that time, logs a line and
/// continues without the turn, also in later calls. Continues without the turn, too, if the lock
/// file cannot be created; the console tells why. Does nothing for the superuser.
void takeTurn();

/// Lets the next start continue. Does nothing if this start does not have the turn.
void endTurn();

}  // namespace teravolant
