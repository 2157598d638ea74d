// Port 80: a browser gets the control page, and a request that carries a command anywhere in its text gets the
// command's raw answer. One connection at a time, one receive each, closed behind the answer. Runs on the HTTP thread.
// A silent client holds the server for 5 s, the others wait in the backlog.
//
// Closing is gentle: a client that is still sending keeps its answer (a plain close would reset the connection and take
// the answer away), which costs at most 200 ms. A client that the log was sent to (ENLOG over HTTP) stays connected and
// reads on.
#pragma once

int SetUpHttpServer();      // 0, or 1 when there is no listening socket: try again
int ServeHttpConnection();  // 0 behind one connection, whatever it wanted; 1: set the server up again

// Ends the answer of a command that came over HTTP before its work is done (it may change the very address that the
// client talks to): the connection is closed, what is written later is lost. On any other channel nothing happens.
void FinishHttpConnection();

void HttpThreadMain();
