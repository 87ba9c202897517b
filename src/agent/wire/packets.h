// Builders of every request the library can send to the agent. Each returns the whole packet
// (header and payload) as one byte string, except make_file_write_packet, whose data goes in a
// second send straight from the caller's memory. Builders keep no state and touch no connection.
#pragma once

#include <cstdint>
#include <string>

std::string make_ping_packet();

std::string make_list_image_packet();
std::string make_add_image_packet(const char *text);
std::string make_del_image_packet(const char *text);
std::string make_list_music_packet();
std::string make_add_music_packet(const char *text);
std::string make_del_music_packet(const char *text);
std::string make_list_video_packet();
std::string make_add_video_packet(const char *text);
std::string make_del_video_packet(const char *text);

std::string make_start_scan_packet(const char *unused);
std::string make_stop_scan_packet();
std::string make_resume_scan_packet();
std::string make_pause_scan_packet();
// The text counts in `length` with its NUL; the returned string holds the NUL as its last byte.
std::string make_erase_file_packet(const char *text);

std::string make_file_open_packet(const char *path, const char *mode);
std::string make_file_close_packet(uint32_t remoteId);
std::string make_file_read_packet(uint32_t remoteId, int64_t offset, int32_t length);
std::string make_file_write_packet(uint32_t remoteId, int64_t offset, int32_t length);
std::string make_file_tell_packet(uint32_t remoteId);
std::string make_file_seek_packet(uint32_t remoteId, int64_t offset, int32_t whence);

std::string make_file_delete_packet(const char *path);
std::string make_file_mkdir_packet(const char *path);
std::string make_file_acc_packet(const char *path);
std::string make_file_stat_packet(const char *path);
std::string make_open_dir_packet(const char *path);
std::string make_read_dir_packet(const char *path);
std::string make_close_dir_packet(const char *path);
