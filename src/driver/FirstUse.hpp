#pragma once

namespace driver {

// To be called first in each call of a program. Does, once for each thread, what the libraries
// below do at the first use in a thread or process under locks and guards that are not ours: a
// process that is forked while another thread holds one of them would wait for it for ever, since
// that thread is not in it. So no fork happens meanwhile, nor while a thread that has called gives
// back what OpenSSL keeps for it. Never waits for longer than that takes.
void prepareThread();

}  // namespace driver
