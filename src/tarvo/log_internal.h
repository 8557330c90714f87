// What an event prints (logtext.cpp), for the event table of log.cpp. Everything goes to the message stream.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

inline constexpr int32_t num_events = 104;

// The problem head, once an optimisation.
void print_problem_head(Task* task);
// "Memory use (cur,max): ...", or empty without memory debugging.
struct MemoryText {
  char text[128];
};
MemoryText memory_text(Task* task);

void print_intpnt_begin(Task* task);
void print_conic_begin(Task* task);
void print_intpnt_row(Task* task);
void print_intpnt_end(Task* task);
void print_primal_bi_begin(Task* task);
void print_primal_bi_row(Task* task);
void print_primal_bi_end(Task* task);
void print_dual_bi_begin(Task* task);
void print_dual_bi_row(Task* task);
void print_dual_bi_end(Task* task);
void print_simplex_bi_begin(Task* task);
void print_simplex_bi_row(Task* task);
void print_simplex_bi_end(Task* task);
void print_bi_end(Task* task);
void print_crash_end(Task* task);
void print_eliminator_end(Task* task);
void print_presolve_end(Task* task);
void print_simplex_begin(Task* task);
void print_simplex_end(Task* task);
void print_network_detect_end(Task* task);
void print_network_begin(Task* task);
void print_primal_setup_end(Task* task);
void print_dual_setup_end(Task* task);
void print_primal_network_setup_end(Task* task);
void print_dual_network_setup_end(Task* task);
void print_primal_row(Task* task);
void print_dual_row(Task* task);
void print_primal_end(Task* task);
void print_dual_end(Task* task);
void print_primal_network_end(Task* task);
void print_dual_network_end(Task* task);

}  // namespace tarvo
