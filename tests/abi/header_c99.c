/* The public header compiles as C99 and its records have the agreed layout in C too. */
#include <Wrenlink/Wrenlink.h>

typedef char c_phone_info_size[(sizeof(PhoneInfo) == 162) ? 1 : -1];
typedef char c_media_bean_size[(sizeof(__MediaBean) == 52) ? 1 : -1];

size_t wrenlink_c_phone_info_size(void);
size_t wrenlink_c_media_bean_next_offset(void);

size_t wrenlink_c_phone_info_size(void) { return sizeof(PhoneInfo); }
size_t wrenlink_c_media_bean_next_offset(void) { return offsetof(__MediaBean, next); }

