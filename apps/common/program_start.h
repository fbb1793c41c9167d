// What every program does first: speak the user's language, and turn a
// write beyond the file-size limit into an error the store reports instead
// of a signal that kills the process mid-save without a word.
#pragma once

namespace tasket::apps {

void startProgram();

} // namespace tasket::apps
