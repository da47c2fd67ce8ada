// What may reach the kernel as an error number.
#pragma once

// A handler's result as the kernel may see it: a count, 0, or one of the errno
// values that handlers answer with. Anything else, such as a code of the device
// layer, becomes -EIO.
int HostResult(int result);

// For the requests whose ENOSYS the kernel would remember for as long as the
// mount lives (open, create, access, attribute calls): it becomes -EIO.
int WithoutEnosys(int result);
