/// Memory that is refused once: to the calling thread, at an allocation of a test's choice.
#pragma once

/// The allocation after the next `count` ones throws std::bad_alloc.
void refuse_memory_after(long count);
/// Takes that back. Whether memory was refused meanwhile.
bool was_memory_refused();
/// How often it was refused, to any thread.
long refusals_of_memory();
