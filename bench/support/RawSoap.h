// A vim25 client with no parser, for the floor of the sync benchmarks: the
// same SOAP requests as the session, written out as text, each POSTed over
// a fresh TLS connection (OpenSSL, as gSOAP uses it) as HTTP/1.0, so that
// the reply ends with the connection. Replies are kept as text, or only
// counted and dropped.
#pragma once
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace rawsoap {

// "<name ...>text<": the text of the first element of that name.
inline std::string element(const std::string& xml, const std::string& name) {
  size_t at = xml.find("<" + name);
  if (at == std::string::npos) return "";
  at = xml.find('>', at);
  if (at == std::string::npos) return "";
  ++at;
  return xml.substr(at, xml.find('<', at) - at);
}

inline std::string envelope(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
         "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\""
         " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns=\"urn:vim25\">"
         "<soapenv:Body>" +
         body + "</soapenv:Body></soapenv:Envelope>";
}

// The inventory filter of the session: the tree from the root folder, six
// types with their properties.
inline std::string createFilterBody(const std::string& collector, const std::string& rootFolder) {
  auto props = [](const std::string& type, std::initializer_list<const char*> paths) {
    std::string s = "<propSet><type>" + type + "</type><all>false</all>";
    for (const char* p : paths) s += std::string("<pathSet>") + p + "</pathSet>";
    return s + "</propSet>";
  };
  auto traversal = [](const std::string& name, const std::string& type, const std::string& path,
                      std::initializer_list<const char*> next) {
    std::string s = "<selectSet xsi:type=\"TraversalSpec\"><name>" + name + "</name><type>" + type +
                    "</type><path>" + path + "</path><skip>false</skip>";
    for (const char* n : next) s += std::string("<selectSet><name>") + n + "</name></selectSet>";
    return s + "</selectSet>";
  };
  return "<CreateFilter><_this type=\"PropertyCollector\">" + collector + "</_this><spec>" +
         props("VmwareDistributedVirtualSwitch", {"name", "uuid", "config.pvlanConfig"}) +
         props("VirtualMachine",
               {"name", "runtime.powerState", "config.hardware", "runtime.host", "config.ftInfo", "config.template"}) +
         props("HostSystem", {"name", "config.network", "configManager.networkSystem", "parent", "hardware",
                              "runtime.connectionState", "runtime.inMaintenanceMode"}) +
         props("DistributedVirtualPortgroup", {"name", "config"}) + props("Datacenter", {"name", "hostFolder"}) +
         props("ComputeResource", {"parent"}) + "<objectSet><obj type=\"Folder\">" + rootFolder +
         "</obj><skip>false</skip>" +
         traversal("folderTravSpec", "Folder", "childEntity",
                   {"dcVMTravSpec", "dcHostTravSpec", "folderTravSpec", "dcNwFolderTravSpec", "compResHostTravSpec",
                    "vAppVmTravSpec", "vAppChildTravSpec"}) +
         traversal("dcVMTravSpec", "Datacenter", "vmFolder", {"folderTravSpec"}) +
         traversal("dcNwFolderTravSpec", "Datacenter", "networkFolder", {"folderTravSpec"}) +
         traversal("dcHostTravSpec", "Datacenter", "hostFolder", {"folderTravSpec"}) +
         traversal("compResHostTravSpec", "ComputeResource", "host", {}) +
         traversal("clusterCompResHostTravSpec", "ClusterComputeResource", "host", {}) +
         traversal("vAppVmTravSpec", "VirtualApp", "vm", {}) +
         traversal("vAppChildTravSpec", "VirtualApp", "resourcePool", {"vAppVmTravSpec", "vAppChildTravSpec"}) +
         "</objectSet></spec><partialUpdates>false</partialUpdates></CreateFilter>";
}

class Client {
 public:
  // url: "https://127.0.0.1:PORT/sdk"
  explicit Client(const std::string& url) : ctx_(SSL_CTX_new(TLS_client_method())) {
    size_t host = url.find("//") + 2;
    size_t colon = url.find(':', host);
    size_t slash = url.find('/', colon);
    port_ = std::stoi(url.substr(colon + 1, slash - colon - 1));
    path_ = url.substr(slash);
    if (!ctx_) throw std::runtime_error("SSL_CTX_new");
    SSL_CTX_set_verify(ctx_, SSL_VERIFY_NONE, nullptr);
  }
  ~Client() { SSL_CTX_free(ctx_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // RetrieveServiceContent and Login; keeps the session cookie and the
  // references that the filter needs.
  void login(const std::string& username, const std::string& password) {
    std::string content = call("<RetrieveServiceContent><_this type=\"ServiceInstance\">ServiceInstance</_this>"
                               "</RetrieveServiceContent>");
    rootFolder = element(content, "rootFolder");
    propertyCollector = element(content, "propertyCollector");
    std::string sessionManager = element(content, "sessionManager");
    std::string reply = call("<Login><_this type=\"SessionManager\">" + sessionManager + "</_this><userName>" +
                             username + "</userName><password>" + password + "</password></Login>");
    if (cookie_.empty() || reply.find("<returnval") == std::string::npos)
      throw std::runtime_error("login refused: " + reply.substr(0, 400));
  }
  void createFilter() {
    std::string reply = call(createFilterBody(propertyCollector, rootFolder));
    if (element(reply, "returnval").empty()) throw std::runtime_error("CreateFilter: " + reply.substr(0, 400));
  }
  std::string checkForUpdatesBody(const std::string& version) const {
    return "<CheckForUpdates><_this type=\"PropertyCollector\">" + propertyCollector + "</_this><version>" + version +
           "</version></CheckForUpdates>";
  }

  // One exchange; the whole reply, headers and body.
  std::string call(const std::string& body) {
    std::string reply;
    Connection c(*this);
    c.send(request(body));
    char buf[65536];
    for (int n; (n = c.read(buf, sizeof buf)) > 0;) reply.append(buf, static_cast<size_t>(n));
    size_t at = reply.find("Set-Cookie: ");
    if (at != std::string::npos) {
      at += 12;
      cookie_ = reply.substr(at, reply.find(';', at) - at);
    }
    return reply;
  }

  // A connection with one request ready to go: the handshake is done on
  // construction, so that drain() times the exchange alone.
  class Connection {
   public:
    explicit Connection(Client& client) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      sockaddr_in a{};
      a.sin_family = AF_INET;
      a.sin_port = htons(static_cast<uint16_t>(client.port_));
      a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      int one = 1;
      setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      if (connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        close(fd_);
        throw std::runtime_error("vim25 endpoint unreachable");
      }
      ssl_ = SSL_new(client.ctx_);
      SSL_set_fd(ssl_, fd_);
      if (SSL_connect(ssl_) != 1) {
        SSL_free(ssl_);
        close(fd_);
        throw std::runtime_error("TLS handshake failed");
      }
    }
    ~Connection() {
      SSL_free(ssl_);
      close(fd_);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void send(const std::string& data) {
      if (SSL_write(ssl_, data.data(), static_cast<int>(data.size())) != static_cast<int>(data.size()))
        throw std::runtime_error("TLS write failed");
    }
    int read(char* buf, int size) { return SSL_read(ssl_, buf, size); }
    // Sends, then reads the reply to its end and drops it; the byte count.
    size_t drain(const std::string& data) {
      send(data);
      size_t total = 0;
      char buf[65536];
      for (int n; (n = read(buf, sizeof buf)) > 0;) total += static_cast<size_t>(n);
      return total;
    }

   private:
    int fd_;
    SSL* ssl_ = nullptr;
  };

  std::string request(const std::string& body) const {
    std::string xml = envelope(body);
    return "POST " + path_ + " HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(port_) +
           "\r\nContent-Type: text/xml; charset=utf-8\r\nSOAPAction: \"urn:vim25/6.0\"\r\n" +
           (cookie_.empty() ? "" : "Cookie: " + cookie_ + "\r\n") + "Content-Length: " + std::to_string(xml.size()) +
           "\r\n\r\n" + xml;
  }

  std::string rootFolder;
  std::string propertyCollector;

 private:
  SSL_CTX* ctx_;
  int port_ = 0;
  std::string path_;
  std::string cookie_;
};

}  // namespace rawsoap
