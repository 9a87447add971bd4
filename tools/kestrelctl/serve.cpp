// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl serve`: one page for the phone, and the JSON interface that is all the page uses.
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <iostream>
#include <thread>

#include "kestrelctl/commands.h"
#include "kestrelctl/files.h"
#include "kestrelctl/serve_connections.h"
#include "kestrelctl/serve_page.h"
#include "kestrelctl/serve_radio.h"

namespace kestrelctl {
namespace {

using httplib::Request;
using httplib::Response;

static_assert(Shared_radio::most_listeners + Shared_radio::most_asking ==
              Bounded_server::most_working);

constexpr const char* policy_header = "Content-Security-Policy";

std::string read_token(const std::string& path) {
  constexpr std::size_t shortest = 16;
  constexpr std::size_t longest = 128;
  std::ifstream file(path);
  if (!file) throw Failure(path + " cannot be read.");
  std::string token(longest + 1, '\0');
  file.read(token.data(), std::ssize(token));
  token.resize(static_cast<std::size_t>(file.gcount()));
  while (!token.empty() && (token.back() == '\n' || token.back() == '\r')) token.pop_back();
  const bool is_printable = std::ranges::all_of(token, [](char c) { return c > ' ' && c <= '~'; });
  if (token.size() < shortest || token.size() > longest || !is_printable) {
    throw Failure(fmt::format("The token in {} must be {} to {} printable ASCII characters.", path,
                              shortest, longest));
  }
  return token;
}

void send_answer(Response& response, int status, const Json& answer) {
  response.status = status;
  response.set_content(to_text(answer), "application/json");
}

void send_error(Response& response, int status, const std::string& sentence) {
  send_answer(response, status, {{"error", sentence}});
}

/// What `work` returns, or the sentence that it throws.
template <class Work>
void answer(Response& response, Work work) {
  try {
    work();
  } catch (const Bad_request& error) {
    send_error(response, 400, error.what());
  } catch (const Failure& failure) {
    const auto kind = failure.status();
    send_error(response,
               kind == exit_status::not_found      ? 404
               : kind == exit_status::no_reception ? 409
                                                   : 503,
               failure.what());
  } catch (const std::exception& error) {
    send_error(response, 500, error.what());
  }
}

/// The page allows its own style and script alone, by a word that nobody can know.
void send_page(Response& response) {
  std::array<unsigned char, 16> random{};
  if (getrandom(random.data(), random.size(), 0) != std::ssize(random)) {
    send_error(response, 503, "There are no random numbers yet.");
    return;
  }
  const auto nonce = fmt::format("{:02x}", fmt::join(random, ""));
  std::string page(serve_page);
  constexpr std::string_view place = "@NONCE@";
  for (auto at = page.find(place); at != std::string::npos; at = page.find(place)) {
    page.replace(at, place.size(), nonce);
  }
  response.set_header(policy_header,
                      fmt::format("default-src 'none'; script-src 'nonce-{0}'; style-src "
                                  "'nonce-{0}'; connect-src 'self'; img-src data:; base-uri "
                                  "'none'; form-action 'none'; frame-ancestors 'none'",
                                  nonce));
  response.set_content(page, "text/html; charset=utf-8");
}

void send_events(Response& response, Shared_radio& radio) {
  struct Stream {
    explicit Stream(Shared_radio& radio) : listener(radio) {}
    Bounded_server::Working working;
    Shared_radio::Listener listener;
  };
  auto stream = std::make_shared<Stream>(radio);
  response.set_chunked_content_provider(
      "text/event-stream", [stream](std::size_t, httplib::DataSink& sink) {
        const auto event = stream->listener.next();
        return !is_stopped() && sink.is_writable() &&
               (event.empty() || sink.write(event.data(), event.size()));
      });
}

void set_guards(Bounded_server& server, const Access& access) {
  using Handled = httplib::Server::HandlerResponse;
  server.set_pre_routing_handler([&access](const Request& request, Response& response) {
    auto refusal = refuse(access, {.is_post = request.method != "GET",
                                   .path = request.path,
                                   .host = request.get_header_value("Host"),
                                   .origin = request.get_header_value("Origin"),
                                   .fetch_site = request.get_header_value("Sec-Fetch-Site"),
                                   .content_type = request.get_header_value("Content-Type"),
                                   .authorization = request.get_header_value("Authorization"),
                                   .local_address = request.local_addr});
    // Many ranges of one page would be many pages; of a sentence that refuses them, too.
    if (!request.ranges.empty()) {
      response.status = 416;
      return Handled::Handled;
    }
    // A few compressed bytes may be many.
    if (request.has_header("Content-Encoding")) refusal = {415, "This is compressed."};
    if (!refusal) return Handled::Unhandled;
    send_error(response, refusal->status, refusal->sentence);
    return Handled::Handled;
  });
  server.set_error_handler([](const Request& request, Response& response) {
    if (response.body.empty() && request.ranges.empty()) {
      send_error(response, response.status, "There is nothing like that.");
    }
  });
  server.set_post_routing_handler([](const Request&, Response& response) {
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Cross-Origin-Resource-Policy", "same-origin");
    response.set_header("Referrer-Policy", "same-origin");
    if (!response.has_header(policy_header)) {
      response.set_header(policy_header, "default-src 'none'; frame-ancestors 'none'");
    }
  });
}

void set_routes(Bounded_server& server, Shared_radio& radio) {
  server.Get("/", [](const Request&, Response& response) { send_page(response); });
  constexpr std::pair<const char*, Json (Shared_radio::*)()> questions[]{
      {"/api/status", &Shared_radio::status},
      {"/api/stations", &Shared_radio::stations},
      {"/api/presets", &Shared_radio::presets}};
  for (const auto& [path, question] : questions) {
    server.Get(path, [&radio, question = question](const Request&, Response& response) {
      answer(response, [&] {
        const Bounded_server::Working working;
        send_answer(response, 200, (radio.*question)());
      });
    });
  }
  server.Get("/api/events", [&radio](const Request&, Response& response) {
    answer(response, [&] { send_events(response, radio); });
  });
  server.Post("/api/.*", [&radio](const Request& request, Response& response) {
    answer(response, [&] {
      const Bounded_server::Working working;
      send_answer(response, 200, radio.carry_out(parse_request(request.path, request.body)));
    });
  });
}

}  // namespace

int serve_command(Store& store, const Serve_options& options) {
  const auto listen = parse_listen_address(options.listen);
  if (!listen) {
    throw Failure("--listen takes a numeric address and a port: 127.0.0.1:8468, [::1]:8468",
                  exit_status::usage);
  }
  if (!listen->is_loopback && options.token_file.empty()) {
    throw Failure(fmt::format("Other machines could press the buttons of the page on {}: it needs "
                              "--token-file.",
                              options.listen),
                  exit_status::usage);
  }
  const auto name = fold(host_name());
  Access access{.names = {"localhost", name, name + ".local"},
                .port = listen->port,
                .token = options.token_file.empty() ? "" : read_token(options.token_file)};
  Bounded_server server;
  const bool is_bound = listen->port == 0
                            ? (access.port = server.bind_to_any_port(listen->address)) > 0
                            : server.bind_to_port(listen->address, listen->port);
  if (!is_bound) {
    throw Failure(fmt::format("Cannot listen on {}: it is in use already, or not this machine's.",
                              options.listen));
  }
  Shared_radio radio(store);
  set_guards(server, access);
  set_routes(server, radio);
  const std::jthread watcher([&radio](const std::stop_token& stop) { radio.watch(stop); });
  fmt::print(std::cout, "The page is at http://{}:{}/\n",
             options.listen.substr(0, options.listen.rfind(':')), access.port);
  std::cout << std::flush;
  const bool has_ended_well = server.listen_after_bind();
  return has_ended_well || is_stopped() ? exit_status::success : exit_status::failure;
}

}  // namespace kestrelctl
