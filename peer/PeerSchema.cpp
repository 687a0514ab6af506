#include "peer/PeerSchema.h"

#include "server/ServerSchema.h"
#include "store/Data.h"

namespace
{
void DeclareConnectionTypes()
{
    DeclareTypeOnce("uninitialized_socket", true, false, false);
    DeclareTypeOnce("peer_socket", true, false, false);
    DeclareTypeOnce("connection_open_time", false, false, true);
    DeclareTypeOnce("peer_connection_request", true, true, false);
    DeclareTypeOnce("peer_connection_request_id", false, false, true);
    DeclareTypeOnce("peer_connection_type", false, false, true);
    DeclareTypeOnce("peer_connection_request_socket", true, false, false);
    DeclareTypeOnce("user_address", false, false, true);
    DeclareTypeOnce("user_port", false, false, true);
    DeclareTypeOnce("socket_creation_time", false, false, true);
    DeclareTypeOnce("connect_to_peer_request", true, true, true);
    DeclareTypeOnce("connect_to_peer_request_status", false, false, true);
    DeclareTypeOnce("connect_to_peer_request_socket", true, false, true);
    DeclareTypeOnce("indirect_connect_to_peer_request", true, false, true);
    DeclareTypeOnce("send_time", false, false, true);

    RelateOnceByName("peer_socket", "user", One, Many);
    RelateOnceByName("peer_socket", "connection_open_time", One, Many);
    RelateOnceByName("peer_connection_request", "peer_connection_request_id", One, Many);
    RelateOnceByName("peer_connection_request", "peer_connection_type", One, Many);
    RelateOnceByName("peer_connection_request", "peer_connection_request_socket", One, One);
    RelateOnceByName("peer_connection_request", "user", One, Many);
    RelateOnceByName("peer_connection_request_socket", "socket_creation_time", One, Many);
    RelateOnceByName("user", "user_address", One, Many);
    RelateOnceByName("user", "user_port", One, Many);
    RelateOnceByName("connect_to_peer_request", "connect_to_peer_request_status", One, Many);
    RelateOnceByName("connect_to_peer_request", "connect_to_peer_request_socket", One, One);
    RelateOnceByName("connect_to_peer_request", "peer_connection_type", One, Many);
    RelateOnceByName("connect_to_peer_request", "user", One, Many);
    RelateOnceByName("connect_to_peer_request", "indirect_connect_to_peer_request", One, One);
    RelateOnceByName("connect_to_peer_request_socket", "socket_creation_time", One, Many);
    RelateOnceByName("indirect_connect_to_peer_request", "send_time", One, Many);
}

void DeclareQueueTypes()
{
    DeclareTypeOnce("unsent_message", true, false, true);
    DeclareTypeOnce("send_order", false, false, true);
    RelateOnceByName("unsent_message", "user", One, Many);
    RelateOnceByName("unsent_message", "send_order", One, One);
    RelateOnceByName("unsent_message", "send_time", One, Many);
}

void DeclareSearchResultTypes()
{
    DeclareTypeOnce("search_request", true, false, false);
    DeclareTypeOnce("search_request_text", false, false, true);
    DeclareTypeOnce("wishlist_search", false, true, true);
    DeclareTypeOnce("search_results", true, true, true);
    DeclareTypeOnce("search_result", false, true, true);
    DeclareTypeOnce("search_results_user_available", false, false, true);
    DeclareTypeOnce("search_results_user_speed", false, false, true);
    DeclareTypeOnce("search_results_uploads_in_queue", false, false, true);
    DeclareTypeOnce("search_result_file_name", false, false, true);
    DeclareTypeOnce("search_result_file_folder", false, false, true);
    DeclareTypeOnce("search_result_file_size", false, false, true);
    DeclareTypeOnce("mpeg_version", false, false, true);
    DeclareTypeOnce("channel_mode", false, false, true);
    DeclareTypeOnce("audio_frequency", false, false, true);
    DeclareTypeOnce("bitrate_mode", false, false, true);
    DeclareTypeOnce("bitrate", false, false, true);
    DeclareTypeOnce("length_seconds", false, false, true);

    RelateOnceByName("search_request", "search_results", Many, One, true);
    RelateOnceByName("search_results", "search_result", Many, One, true);
    RelateOnceByName("search_request", "search_request_text", One, Many);
    RelateOnceByName("search_request", "wishlist_search", One, Many);
    RelateOnceByName("search_results", "user", One, Many);
    RelateOnceByName("search_results", "search_results_user_available", One, Many);
    RelateOnceByName("search_results", "search_results_user_speed", One, Many);
    RelateOnceByName("search_results", "search_results_uploads_in_queue", One, Many);
    RelateOnceByName("search_result", "search_result_file_name", One, Many);
    RelateOnceByName("search_result", "search_result_file_folder", One, Many);
    RelateOnceByName("search_result", "search_result_file_size", One, Many);
    RelateOnceByName("search_result", "bitrate_mode", One, Many);
    RelateOnceByName("search_result", "bitrate", One, Many);
    RelateOnceByName("search_result", "length_seconds", One, Many);
}
} // namespace

void DeclarePeerSchema()
{
    DeclareConnectionTypes();
    DeclareQueueTypes();
    DeclareSearchResultTypes();
}
