package main

import (
	"context"
	"crypto/tls"
	"errors"
	"fmt"
	"io"
	"log"
	"net"
	"net/http"
	"net/url"
	"strconv"
	"sync"
	"time"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25"
	"github.com/vmware/govmomi/vim25/types"
)

// Config is the inventory and the endpoints of one simulator.
type Config struct {
	Port        int // HTTPS port of the SOAP endpoint, 0 for a free one
	ControlPort int // HTTP port of the control interface, 0 for a free one

	Username string
	Password string

	Datacenters     int
	StandaloneHosts int // per datacenter
	Clusters        int // per datacenter
	ClusterHosts    int // per cluster
	VMsPerHost      int
	NicsPerVM       int  // network cards of each machine
	Portgroups      int  // distributed port groups per datacenter; 0: no distributed switch
	Variety         bool // switches, NICs, cards, VLAN policies and folders of several kinds

	CertFile string
	KeyFile  string

	ExitOnStdinEOF bool
	Verbose        bool
	Trace          bool
	LogOutput      io.Writer
}

// DefaultConfig is a small inventory: one datacenter with one standalone host
// and one cluster of two hosts, two machines on each host, one distributed
// switch with two port groups that all hosts are members of.
func DefaultConfig() Config {
	return Config{
		Username:        "administrator@vsphere.local",
		Password:        "vmware",
		Datacenters:     1,
		StandaloneHosts: 1,
		Clusters:        1,
		ClusterHosts:    2,
		VMsPerHost:      2,
		NicsPerVM:       1,
		Portgroups:      2,
		ExitOnStdinEOF:  true,
	}
}

func (c Config) validate() error {
	if c.Port < 0 || c.Port > 65535 || c.ControlPort < 0 || c.ControlPort > 65535 {
		return errors.New("ports must lie between 0 and 65535")
	}
	if c.Username == "" || c.Password == "" {
		return errors.New("user name and password must not be empty")
	}
	if c.Datacenters < 1 {
		return errors.New("at least one datacenter is needed")
	}
	if c.NicsPerVM < 1 || c.NicsPerVM > 10 {
		return errors.New("machines have 1 to 10 network cards")
	}
	for _, n := range []int{c.StandaloneHosts, c.Clusters, c.ClusterHosts, c.VMsPerHost, c.Portgroups} {
		if n < 0 {
			return errors.New("inventory counts must not be negative")
		}
	}
	if (c.CertFile == "") != (c.KeyFile == "") {
		return errors.New("-cert and -key go together")
	}
	return nil
}

// Simulator is one running vCenter stand-in. govmomi's simulator keeps its
// inventory in a process-wide registry, so only one may run at a time.
type Simulator struct {
	cfg   Config
	model *simulator.Model
	// vim is an in-process client of the simulator, used to change the
	// inventory with the simulator's own methods, as a vCenter user would.
	vim *vim25.Client

	URL        string // SOAP endpoint, https://127.0.0.1:PORT/sdk
	ControlURL string // control interface, http://127.0.0.1:PORT

	soapServer    *http.Server
	controlServer *http.Server
	stop          chan struct{} // closed by Close: releases held requests
	closeOnce     sync.Once

	logger *log.Logger
	trace  *log.Logger // nil unless Config.Trace

	sessions *sessionTable
	calls    *callLog
	faults   *faultTable
	events   *eventStore
	ports    *portTable
	hints    *hintTable
	records  *recordBook
	options  *optionSet

	// inventoryMu serialises the inventory changes of the control interface.
	inventoryMu sync.Mutex
}

var (
	runningMu sync.Mutex
	running   bool
)

// Start builds the inventory and starts both listeners.
func Start(cfg Config) (*Simulator, error) {
	if err := cfg.validate(); err != nil {
		return nil, err
	}
	runningMu.Lock()
	if running {
		runningMu.Unlock()
		return nil, errors.New("a simulator is already running in this process")
	}
	running = true
	runningMu.Unlock()

	s, err := start(cfg)
	if err != nil {
		runningMu.Lock()
		running = false
		runningMu.Unlock()
		return nil, err
	}
	return s, nil
}

func start(cfg Config) (*Simulator, error) {
	logOut := cfg.LogOutput
	if logOut == nil {
		logOut = io.Discard
	}
	// The simulator logs through the standard logger; keep it quiet unless asked.
	if cfg.Verbose {
		log.SetOutput(logOut)
	} else {
		log.SetOutput(io.Discard)
	}
	// SOAP traffic is traced by serveSOAP, which sees every call.
	simulator.Trace = false

	s := &Simulator{
		cfg:      cfg,
		stop:     make(chan struct{}),
		logger:   log.New(logOut, "vcsim: ", log.LstdFlags),
		sessions: newSessionTable(),
		calls:    newCallLog(),
		faults:   newFaultTable(),
		ports:    newPortTable(),
		hints:    newHintTable(),
		records:  newRecordBook(),
		options:  newOptionSet(),
	}
	s.events = newEventStore(s)
	if cfg.Trace {
		s.trace = log.New(logOut, "vcsim-trace: ", log.Lmicroseconds)
	}

	if err := s.buildInventory(); err != nil {
		if s.model != nil {
			s.model.Remove()
		}
		return nil, fmt.Errorf("building the inventory: %w", err)
	}

	tlsConfig, err := s.tlsConfig()
	if err != nil {
		s.model.Remove()
		return nil, err
	}

	soapLn, err := net.Listen("tcp", net.JoinHostPort("127.0.0.1", strconv.Itoa(cfg.Port)))
	if err != nil {
		s.model.Remove()
		return nil, err
	}
	controlLn, err := net.Listen("tcp", net.JoinHostPort("127.0.0.1", strconv.Itoa(cfg.ControlPort)))
	if err != nil {
		soapLn.Close()
		s.model.Remove()
		return nil, err
	}

	soapAddr := soapLn.Addr().String()
	s.URL = "https://" + soapAddr + "/sdk"
	s.ControlURL = "http://" + controlLn.Addr().String()

	svc := s.model.Service
	// The simulator's Login compares with the user of its listen URL.
	svc.Listen = &url.URL{
		Scheme: "https",
		Host:   soapAddr,
		Path:   vim25.Path,
		User:   url.UserPassword(cfg.Username, cfg.Password),
	}
	svc.RegisterSDK(simulator.Map)
	simulator.Map.SessionManager().ServiceHostName = soapAddr

	soapMux := http.NewServeMux()
	soapMux.HandleFunc(vim25.Path, s.serveSOAP)
	soapMux.HandleFunc(vim25.Path+"/vimServiceVersions.xml", svc.ServiceVersions)

	s.soapServer = &http.Server{
		Handler:   soapMux,
		TLSConfig: tlsConfig,
		// HTTP/1.1 only: the fault injection needs to take over connections.
		TLSNextProto: map[string]func(*http.Server, *tls.Conn, http.Handler){},
		ErrorLog:     s.logger,
	}
	s.controlServer = &http.Server{
		Handler:  s.controlHandler(),
		ErrorLog: s.logger,
	}

	go func() { _ = s.soapServer.Serve(tls.NewListener(soapLn, tlsConfig)) }()
	go func() { _ = s.controlServer.Serve(controlLn) }()

	return s, nil
}

// Close stops both listeners, releases held requests and removes the
// simulator's temporary files. It may be called more than once.
func (s *Simulator) Close() {
	s.closeOnce.Do(func() {
		close(s.stop)
		s.faults.clear()
		ctx, cancel := context.WithTimeout(context.Background(), 2*time.Second)
		defer cancel()
		_ = s.controlServer.Shutdown(ctx)
		// Waiting calls such as WaitForUpdates never end by themselves.
		_ = s.soapServer.Close()
		s.model.Remove()
		runningMu.Lock()
		running = false
		runningMu.Unlock()
	})
}

// Done is closed when the simulator stops.
func (s *Simulator) Done() <-chan struct{} { return s.stop }

// simContext is a simulator call context for work done on behalf of a
// session: posting events, creating tasks.
func simContext(user, key string) *simulator.Context {
	if user == "" {
		user = "vcsim"
	}
	return &simulator.Context{
		Context: context.Background(),
		Map:     simulator.Map,
		Session: &simulator.Session{
			UserSession: types.UserSession{Key: key, UserName: user, FullName: user},
			Registry:    simulator.NewRegistry(),
		},
	}
}
