// What every program does first: speak the user's language, and turn a
// write beyond the file-size limit into an error the store reports instead
// of a signal that kills the process mid-save without a word. And what
// every program does last: finish the work still posted to its main queue,
// which lets the store go and close cleanly.
#pragma once

namespace tasket::apps {

void startProgram();

/// Runs what is still queued for the main thread (a context's posted work
/// keeps the context, and so the store, alive until it runs), then returns
/// `status`. Without it the store is never closed: its log stays behind and
/// the next program to open it must replay it.
int finishProgram(int status);

} // namespace tasket::apps
